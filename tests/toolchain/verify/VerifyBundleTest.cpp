// What a verification says about the files of a bundle and the code nested in it.
#include <filesystem>
#include <fstream>

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
using testing::HasSubstr;
using toolchain::Verdict;

class VerifyBundleTest : public SignedAppTest {};

/// Files around the executable: one change each, one complaint each.
TEST_F(VerifyBundleTest, ChangesInTheBundleAreNoticed) {
  struct Row {
    const char* name;
    std::function<void(const fs::path& app)> change;
    const char* reason;
    std::vector<std::string> files;
    const char* cause = "";
  };
  const std::vector<Row> rows{
      {"byte of a resource",
       [](auto& app) { flip(app / "Frameworks/F.framework/data", 3); },
       kSealedResource,
       {"file modified: /Frameworks/F.framework/data"}},
      {"byte of nested code",
       [](auto& app) { flip(app / "Frameworks/libf.dylib", 5000); },
       kSealedResource,
       {"file modified: /Frameworks/libf.dylib"}},
      {"nested seal",
       [](auto& app) {
         writeFile(app / "Frameworks/F.framework/_CodeSignature/CodeResources", "");
       },
       kSealedResource,
       {"file modified: /Frameworks/F.framework/_CodeSignature/CodeResources"}},
      {"new files",
       [](auto& app) {
         writeFile(app / "new", "");
         writeFile(app / "de.lproj/extra", "");
       },
       kSealedResource,
       {"file added: /de.lproj/extra", "file added: /new"}},
      {"one of each",
       [](auto& app) {
         writeFile(app / "zz", "");
         writeFile(app / "embedded.mobileprovision", "other");
         fs::remove(app / "Frameworks/F.framework/data");
       },
       kSealedResource,
       {"file added: /zz", "file modified: /embedded.mobileprovision",
        "file missing: /Frameworks/F.framework/data"}},
      {"file became a link",
       [](auto& app) {
         fs::remove(app / "Frameworks/F.framework/data");
         fs::create_symlink("Info.plist", app / "Frameworks/F.framework/data");
       },
       kSealedResource,
       {"file modified: /Frameworks/F.framework/data"}},
      {"beside the seal",
       [](auto& app) { writeFile(app / "_CodeSignature/ResourceRules", ""); },
       kSealedResource,
       {"file added: /_CodeSignature/ResourceRules"}},
      {"in place of a ticket",
       [](auto& app) {
         writeFile(app / "CodeResources/evil", "");
         writeFile(app / "_MASReceipt/receipt", "a receipt");
       },
       kSealedResource,
       {"file added: /CodeResources/evil"}},
      {"code in place of tickets and receipts",
       [](auto& app) {
         fs::create_directory(app / "_MASReceipt");
         fs::copy_file(app / "Frameworks/libf.dylib", app / "CodeResources");
         fs::copy_file(app / "Frameworks/libf.dylib", app / "_MASReceipt/receipt");
       },
       kSealedResource,
       {"file added: /CodeResources", "file added: /_MASReceipt/receipt"}},
      {"byte of Info.plist", [](auto& app) { flip(app / "Info.plist", 120); }, kInvalidInfo, {}},
      {"other Info.plist",
       [](auto& app) {
         writePlist(app / "Info.plist", {{"CFBundleExecutable", "Example"}});
       },
       kInvalidInfo,
       {},
       "Info.plist has another hash"},
      {"no Info.plist", [](auto& app) { fs::remove(app / "Info.plist"); }, kBundleFormat, {}},
      {"byte of the seal",
       [](auto& app) { flip(app / "_CodeSignature/CodeResources", 400); },
       kInvalidSeal,
       {},
       "resource seal has another hash"},
      {"no seal", [](auto& app) { fs::remove_all(app / "_CodeSignature"); }, kNoResources, {}},
      {"no executable", [](auto& app) { fs::remove(app / "Example"); }, kBundleFormat, {}},
      {"executable is text",
       [](auto& app) { writeFile(app / "Example", "#!/bin/sh\n"); },
       kObjectFormat,
       {}},
      {"executable is cut off",
       [](auto& app) { fs::resize_file(app / "Example", 70000); },
       kObjectFormat,
       {}},
      {"bytes behind the last slice",
       [](auto& app) { std::ofstream(app / "Example", std::ios::app) << "more"; },
       kStrict,
       {},
       "bytes lie outside any slice"},
      {"bytes before the first slice",
       [](auto& app) { flip(app / "Example", 0x2000); },
       kStrict,
       {},
       "bytes lie outside any slice"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    restore();
    row.change(app());
    const Verdict verdict = verify();
    EXPECT_EQ(verdict.status, 1);
    ASSERT_FALSE(verdict.statements.empty());
    EXPECT_EQ(verdict.statements[0], line(row.reason));
    EXPECT_THAT(verdict.statements.back(), HasSubstr(row.cause));
    std::vector<std::string> files;
    for (std::string file : verdict.files) {
      const auto at = file.find(app().string());
      files.push_back(at == std::string::npos ? file : file.erase(at, app().string().size()));
    }
    EXPECT_EQ(files, row.files);
  }
}

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

TEST_F(VerifyBundleTest, OptionalFilesMayGo) {
  fs::remove_all(app() / "de.lproj");
  EXPECT_EQ(verify().status, 0);
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
