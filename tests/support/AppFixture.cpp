#include "tests/support/AppFixture.h"

#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace test {

const Family& signingFamily() {
  static const Family family = makeFamily({.markers = {"1.2.840.113635.100.6.1.4"}});
  return family;
}

fs::path makeApp(const fs::path& parent) {
  const fs::path app = parent / "Example.app";
  writePlist(app / "Info.plist", {{"CFBundleIdentifier", "com.example.app"},
                                  {"CFBundleExecutable", "Example"},
                                  {"CFBundleVersion", "2.5.117"},
                                  {"MinimumOSVersion", "9.0"}});
  const TemporaryFolder built;
  for (const char* const name : {"armv7", "arm64"}) linkImage(built / name, name);
  outputOf({llvmTool("llvm-lipo"), "-create", "-output", app / "Example", built / "armv7",
            built / "arm64"});
  const ProfileOptions profile{.developerCertificates = {signingFamily().leaf.der()}};
  writeFile(app / "embedded.mobileprovision",
            makeProvisioningProfile(profile.dictionary(), signingFamily().leaf).text());
  writeFile(app / "en.lproj/InfoPlist.strings", "\"CFBundleDisplayName\" = \"Example\";\n");
  writeFile(app / "Icon.png", std::string(4096, '\x5a'));
  fs::create_symlink("Icon.png", app / "Icon@2x.png");
  return app;
}

fs::path writeKeychain(const fs::path& target, const Family& family) {
  writeFile(target, family.pem());
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
  return target;
}

}  // namespace test
