#pragma once

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/verify/Verification.h"

namespace test {

// Why the platform says that code does not verify.
inline constexpr const char* kBundleFormat = "bundle format unrecognized, invalid, or unsuitable";
inline constexpr const char* kInvalidInfo =
    "invalid Info.plist (plist or signature have been modified)";
inline constexpr const char* kInvalidSeal =
    "invalid resource directory (directory or signature have been modified)";
inline constexpr const char* kInvalidSignature =
    "invalid signature (code or signature have been modified)";
inline constexpr const char* kNoResources =
    "code has no resources but signature indicates they must be present";
inline constexpr const char* kObjectFormat =
    "object file format unrecognized, invalid, or unsuitable";
inline constexpr const char* kSealedResource = "a sealed resource is missing or invalid";
inline constexpr const char* kStrict = "main executable failed strict validation";
inline constexpr const char* kUnsigned = "code object is not signed at all";

/// Changes one bit of one byte.
inline void flip(const std::filesystem::path& path, std::uintmax_t offset) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset));
  const char byte = static_cast<char>(file.get() ^ 0x10);
  file.seekp(static_cast<std::streamoff>(offset));
  file.put(byte);
}

/// An app of armv7 and arm64 with both digests, entitlements, a framework and a loose library;
/// signed once, copied for each test.
class SignedAppTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    pristine_ = new TemporaryFolder;
    const std::filesystem::path built = makeApp(pristine_->path());
    linkImage(*pristine_ / "libf.dylib",
              {.source = "int f(void) { return 0; }\n", .linkerArguments = {"-dylib"}});
    const std::filesystem::path framework = built / "Frameworks/F.framework";
    std::filesystem::create_directories(framework);
    std::filesystem::copy_file(*pristine_ / "libf.dylib", framework / "F");
    std::filesystem::copy_file(*pristine_ / "libf.dylib", built / "Frameworks/libf.dylib");
    writePlist(framework / "Info.plist",
               {{"CFBundleIdentifier", "com.example.F"}, {"CFBundleExecutable", "F"}});
    writeFile(framework / "data", "framework's own");
    writePlist(
        *pristine_ / "entitlements",
        {{"application-identifier", "ABCDE12345.com.example.app"}, {"get-task-allow", true}});
    toolchain::SignOptions options;
    options.code = built;
    options.identity = signingFamily().leaf.sha1();
    options.keychain = writeKeychain(*pristine_ / "keychain.pem");
    options.entitlements = *pristine_ / "entitlements";
    const auto signedWell = toolchain::sign(options);
    ASSERT_TRUE(signedWell) << signedWell.error().localizedDescription();
  }
  static void TearDownTestSuite() { delete pristine_; }

  void SetUp() override { restore(); }

  void restore() {
    std::filesystem::remove_all(app());
    std::filesystem::copy(
        *pristine_ / "Example.app", app(),
        std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  }
  [[nodiscard]] std::filesystem::path app() const { return folder_ / "Example.app"; }
  [[nodiscard]] std::filesystem::path executable() const { return app() / "Example"; }
  [[nodiscard]] toolchain::Verdict verify(bool deep = false) const {
    return toolchain::verify({.code = app(), .deep = deep});
  }
  [[nodiscard]] std::string line(std::string_view text) const {
    return app().string() + ": " + std::string(text);
  }
  [[nodiscard]] static toolchain::Slice slice(std::size_t index) {
    static const std::string file = contentsOf(*pristine_ / "Example.app/Example");
    return toolchain::MachOFile::parse(foundation::bytesOf(file))->slices().at(index);
  }

  static inline TemporaryFolder* pristine_ = nullptr;
  TemporaryFolder folder_;
};

}  // namespace test
