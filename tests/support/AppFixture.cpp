#include "tests/support/AppFixture.h"

#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace test {

namespace fs = std::filesystem;

namespace {

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

/// A real executable of armv7 and arm64, in this order, made once per test program.
const fs::path& universalExecutable() {
  static const TemporaryFolder folder;
  static const fs::path executable = [] {
    for (const char* const architecture : {"armv7", "arm64"}) {
      linkImage(folder / architecture, architecture);
    }
    outputOf({llvmTool("llvm-lipo"), "-create", "-output", folder / "universal", folder / "armv7",
              folder / "arm64"});
    return folder / "universal";
  }();
  return executable;
}

}  // namespace

const Family& signingFamily() {
  static const Family family = makeFamily({.markers = {std::string(kDistributionMarker)}});
  return family;
}

ProfileOptions AppOptions::exampleProfile() {
  ProfileOptions profile;
  profile.provisionedDevices = {
      {"2b6f0cc904d137be2e1730235f5664094b831186", "aa6f0cc904d137be2e1730235f5664094b8311aa"}};
  return profile;
}

fs::path makeApp(const fs::path& parent, const AppOptions& options) {
  const fs::path app = parent / "Example.app";
  fs::create_directories(app);
  const foundation::Dictionary info = infoOf(options);
  writePlist(app / "Info.plist", info);
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

fs::path writeKeychain(const fs::path& target, const Family& family) {
  writeFile(target, family.pem());
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
  return target;
}

}  // namespace test
