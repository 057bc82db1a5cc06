// What a verification says about the files of a bundle and the code nested in it.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/AppFixture.h"
#include "tests/toolchain/support/Resigning.h"
#include "tests/toolchain/support/SignedAppFixture.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/verify/Verification.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using foundation::bytesOf;
using testing::Contains;
using testing::ElementsAre;
using toolchain::Verdict;

class VerifyBundleTest : public SignedAppTest {};

/// What lies beside a Contents folder is out of the seal's reach.
TEST_F(VerifyBundleTest, NothingLiesAtTheRootBesideContents) {
  const fs::path mac = folder_ / "Mac.app";
  fs::create_directories(mac / "Contents/MacOS");
  fs::copy_file(app() / "Example", mac / "Contents/MacOS/Example");
  fs::copy_file(app() / "Info.plist", mac / "Contents/Info.plist");
  ASSERT_TRUE(toolchain::sign({.code = mac, .identity = "-", .force = true}));
  writeFile(mac / "Contents/CodeResources", "a ticket");
  writeFile(mac / ".DS_Store", "traces");
  EXPECT_EQ(toolchain::verify({.code = mac}).status, 0);

  fs::copy_file(app() / "Frameworks/libf.dylib", mac / "evil.dylib");
  fs::create_symlink("evil.dylib", mac / ".LSOverride");
  fs::permissions(mac / ".DS_Store", fs::perms(0755));
  fs::create_directory(mac / "Resources");
  const Verdict verdict = toolchain::verify({.code = mac});
  EXPECT_EQ(verdict.status, 1);
  const std::string root = "file added: " + fs::canonical(mac).string();
  EXPECT_THAT(verdict.files, ElementsAre(root + "/.DS_Store", root + "/.LSOverride",
                                         root + "/Resources", root + "/evil.dylib"));
}

/// Both slices deny that there is a seal, or have one that covers nothing.
TEST_F(VerifyBundleTest, ResourcesNeedASeal) {
  const std::string empty = "<plist><dict/></plist>";
  const auto resign = [](const fs::path& executable, std::size_t slices,
                         const std::optional<std::string>& seal) {
    for (std::size_t i = 0; i < slices; ++i) {
      auto parts = test::takeApart(executable, i);
      for (std::size_t d = 0; d < parts.directories.size(); ++d) {
        parts.files[d].erase(3);
        if (seal) {
          parts.files[d][3] = toolchain::hashOf(bytesOf(*seal), parts.directories[d].hashType);
        }
      }
      test::putTogether(executable, parts, test::signingFamily(), i);
    }
  };
  fs::remove_all(app() / "_CodeSignature");
  resign(executable(), 2, std::nullopt);
  Verdict verdict = verify();
  EXPECT_EQ(verdict.statements[0], line(kSealedResource));
  EXPECT_THAT(verdict.files, Contains(testing::EndsWith("/embedded.mobileprovision")));

  writeFile(app() / "_CodeSignature/CodeResources", empty);
  resign(executable(), 2, empty);
  verdict = verify();
  EXPECT_EQ(verdict.statements[0], line(kInvalidSeal));
  EXPECT_EQ(verdict.statements.back(), "Cause: CodeResources has no rules");

  const fs::path framework = app() / "Frameworks/F.framework";
  fs::remove_all(framework / "_CodeSignature");
  fs::remove(framework / "data");
  resign(framework / "F", 1, std::nullopt);
  EXPECT_EQ(toolchain::verify({.code = framework}).status, 0) << "nothing needs a seal there";
}

TEST_F(VerifyBundleTest, NestedCodeIsNamed) {
  const fs::path framework = app() / "Frameworks/F.framework";
  fs::copy_file(*pristine_ / "libf.dylib", framework / "F", fs::copy_options::overwrite_existing);
  toolchain::SignOptions options;
  options.code = app();
  options.identity = "-";
  options.force = true;
  ASSERT_TRUE(toolchain::sign(options));
  EXPECT_EQ(verify(true).status, 0);

  auto parts = test::takeApart(framework / "F");
  parts.directories[0].execSegmentLimit += 1;
  test::putTogether(framework / "F", parts, test::signingFamily());
  ASSERT_TRUE(toolchain::sign(options)) << "signed nested code stays as it is";
  EXPECT_EQ(verify(false).status, 0);
  const Verdict verdict = verify(true);
  EXPECT_EQ(verdict.status, 1);
  EXPECT_THAT(verdict.statements,
              Contains("In subcomponent: " + fs::canonical(framework).string()));
}

}  // namespace
