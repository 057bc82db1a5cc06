#include "tests/support/AppFixture.h"

#include <fstream>
#include <stdexcept>

#include "foundation/format/PropertyList.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, std::string_view content) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

void writePropertyList(const fs::path& path, const foundation::Dictionary& dictionary) {
  const auto text = foundation::PropertyList::xml(dictionary);
  if (!text) throw std::runtime_error(text.error().localizedDescription());
  writeFile(path, *text);
}

foundation::Dictionary infoOf(const AppOptions& options) {
  foundation::Dictionary info = {{"CFBundleIdentifier", options.profile.bundleIdentifier},
                                 {"CFBundleName", "Example"},
                                 {"CFBundleExecutable", "Example"},
                                 {"CFBundlePackageType", "APPL"},
                                 {"CFBundleShortVersionString", "2.5"},
                                 {"CFBundleVersion", "2.5.117"},
                                 {"MinimumOSVersion", "9.0"},
                                 {"UIDeviceFamily", foundation::Array{1, 2}}};
  for (const auto& [key, value] : options.info) {
    info.erase(key);
    if (value.type() != foundation::Value::Type::null) info.emplace(key, value);
  }
  return info;
}

foundation::Data profileOf(ProfileOptions options) {
  if (options.developerCertificates.empty()) {
    options.developerCertificates = {signingFamily().leaf.der()};
  }
  return makeProvisioningProfile(options.dictionary(), signingFamily().leaf);
}

/// The folder `Payload` and its siblings, ready to be packed.
void stage(const fs::path& folder, const fs::path& app,
           const std::map<std::string, std::string>& besides) {
  fs::create_directories(folder / "Payload");
  fs::copy(app, folder / "Payload" / app.filename(),
           fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  for (const auto& [path, content] : besides) writeFile(folder / path, content);
}

}  // namespace

const Family& signingFamily() {
  static const Family family = makeFamily({.markers = {std::string(kDistributionMarker)}});
  return family;
}

const fs::path& universalExecutable() {
  static const TemporaryFolder folder;
  static const fs::path executable = [] {
    for (const char* const architecture : {"armv7", "arm64"}) {
      RealImageOptions image;
      image.architecture = architecture;
      linkImage(folder / architecture, image);
    }
    lipo(folder / "universal", {folder / "armv7", folder / "arm64"});
    return folder / "universal";
  }();
  return executable;
}

ProfileOptions AppOptions::exampleProfile() {
  ProfileOptions profile;
  profile.provisionedDevices = {
      {"2b6f0cc904d137be2e1730235f5664094b831186", "aa6f0cc904d137be2e1730235f5664094b8311aa"}};
  return profile;
}

fs::path makeApp(const fs::path& parent, const AppOptions& options) {
  const fs::path app = parent / options.folderName;
  fs::create_directories(app);
  const foundation::Dictionary info = infoOf(options);
  writePropertyList(app / "Info.plist", info);
  if (const auto executable = foundation::stringAt(info, "CFBundleExecutable")) {
    fs::copy_file(universalExecutable(), app / *executable);
  }
  writeFile(app / "embedded.mobileprovision", profileOf(options.profile).text());
  writeFile(app / "PkgInfo", "APPL????");
  writeFile(app / "en.lproj/InfoPlist.strings", "\"CFBundleDisplayName\" = \"Example\";\n");
  writeFile(app / "de.lproj/InfoPlist.strings", "\"CFBundleDisplayName\" = \"Beispiel\";\n");
  writeFile(app / "Icon.png", std::string("\x89PNG\r\n\x1a\n", 8) + std::string(4096, '\x5a'));
  fs::create_symlink("Icon.png", app / "Icon@2x.png");
  return app;
}

fs::path packIPA(const fs::path& app, const fs::path& target,
                 const std::map<std::string, std::string>& besides) {
  const TemporaryFolder folder;
  stage(folder / "staged", app, besides);
  // zip adds ".zip" to a name without an extension, so the target gets its name afterwards.
  outputOf({"sh", "-c", R"(cd "$1" && zip -q --symlinks -r ../packed.zip .)", "sh",
            (folder / "staged").string()});
  fs::create_directories(target.parent_path());
  fs::copy_file(folder / "packed.zip", target, fs::copy_options::overwrite_existing);
  return target;
}

fs::path makeArchive(const fs::path& archive, const fs::path& app) {
  const fs::path products = archive / "Products";
  const fs::path inside = fs::path("Applications") / app.filename();
  fs::create_directories(products / "Applications");
  fs::copy(app, products / inside, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  const foundation::Date created = std::chrono::sys_days{std::chrono::year{2015} / 3 / 1};
  writePropertyList(
      archive / "Info.plist",
      {{"CreationDate", created},
       {"Name", "Example"},
       {"ApplicationProperties", foundation::Dictionary{{"ApplicationPath", inside.string()}}}});
  return products;
}

fs::path writeKeychain(const fs::path& target, const Family& family) {
  writeFile(target, family.pem());
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
  return target;
}

}  // namespace test
