#pragma once

#include "tests/support/AppFixture.h"
#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/verify/Verification.h"

namespace test {

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
    writeFile(built / "Frameworks/libf.dylib", libraryCode());
    const auto framework =
        writeBundle(built / "Frameworks/F.framework", "com.example.F", libraryCode());
    writeFile(framework / "data", "framework's own");
    const auto entitlements = writePlist(
        *pristine_ / "entitlements",
        {{"application-identifier", "ABCDE12345.com.example.app"}, {"get-task-allow", true}});
    ASSERT_TRUE(toolchain::sign({.code = built,
                                 .identity = signingFamily().leaf.sha1(),
                                 .keychain = writeKeychain(*pristine_ / "keychain.pem"),
                                 .entitlements = entitlements}));
  }
  static void TearDownTestSuite() { delete pristine_; }

  void SetUp() override { restore(); }

  void restore() {
    std::filesystem::remove_all(app_);
    copyTree(*pristine_ / "Example.app", app_);
  }
  [[nodiscard]] toolchain::Verdict verify(bool deep = false) const {
    return toolchain::verify({.code = app_, .deep = deep});
  }
  /// What is said about the app for this fault.
  [[nodiscard]] std::string line(toolchain::Fault fault) const {
    return app_.string() + ": " + std::string(toolchain::reason(fault));
  }
  [[nodiscard]] static toolchain::Slice slice(std::size_t index) {
    static const std::string file = contentsOf(*pristine_ / "Example.app/Example");
    return toolchain::MachOFile::parse(foundation::bytesOf(file))->slices().at(index);
  }

  static inline TemporaryFolder* pristine_ = nullptr;
  const TemporaryFolder folder_;
  const std::filesystem::path app_ = folder_ / "Example.app";
  const std::filesystem::path executable_ = app_ / "Example";
  const std::filesystem::path library_ = app_ / "Frameworks/libf.dylib";
  const std::filesystem::path framework_ = app_ / "Frameworks/F.framework";
};

}  // namespace test
