#include "tests/toolchain/support/CodeFixture.h"
#include "toolchain/bundle/CodeBundle.h"

namespace {

TEST(CodeBundleTest, IdentifiersComeFromTheInfoPlistOrTheName) {
  const TemporaryFolder folder;
  const auto identifierOf = [](const fs::path& code) {
    return toolchain::CodeBundle::open(code)->identifier;
  };
  for (const auto& [name, identifier] :
       std::map<std::string, std::string>{{"libswiftCore.dylib", "libswiftCore"},
                                          {"foo.2.3.4", "foo.2"},
                                          {"foo.2.3.dylib", "foo.2"},
                                          {"foo.2a.dylib", "foo.2a"},
                                          {"foo.bar.dylib", "foo.bar"},
                                          {"foo.1", "foo.1"},
                                          {"plain", "plain"}}) {
    EXPECT_EQ(identifierOf(folder.write(name, libraryCode())), identifier) << name;
  }
  const fs::path info = writePlist(folder / "info", {{"CFBundleIdentifier", "com.example.inside"}});
  EXPECT_EQ(identifierOf(folder.write(
                "other.dylib", linked({"-dylib", "-sectcreate", "__TEXT", "__info_plist", info}))),
            "com.example.inside");
  const fs::path framework = writeBundle(folder / "F.framework", "com.example.f", libraryCode());
  EXPECT_EQ(identifierOf(framework), "com.example.f");
  EXPECT_EQ(identifierOf(framework / "F"), "com.example.f") << "the executable opens as the bundle";
  writePlist(framework / "Info.plist", {{"CFBundleExecutable", "F"}});
  EXPECT_EQ(identifierOf(framework), "F");
  EXPECT_EQ(problemOf(toolchain::CodeBundle::open("/dev/null")),
            "neither a folder nor a regular file");
}

}  // namespace
