// Signing, apart from what whole runs of codesign show.
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"
#include "toolchain/display/SignatureReport.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/sign/private/SignatureBuilder.h"
#include "toolchain/verify/Verification.h"

namespace {

/// Whoever may write to the tree puts a link into it once the bundles have been found.
TEST(SignTest, ALinkThatIsPutIntoTheTreeIsNotFollowed) {
  const TemporaryFolder folder;
  const fs::path app = makeApp(folder.path());
  const fs::path victim = folder / "victim";
  copyTree(app, victim / "E.appex");
  copyTree(victim, app / "PlugIns");
  const auto before = snapshot(victim);
  toolchain::SignOptions options{.code = app, .identity = "-"};
  options.note = [&](const std::string&) {
    fs::rename(app / "PlugIns", folder / "moved");
    fs::create_directory_symlink(victim, app / "PlugIns");
  };
  EXPECT_THAT(problemOf(toolchain::sign(options)), HasSubstr("PlugIns/E.appex"));
  EXPECT_TRUE(snapshot(victim) == before);
}

TEST(SignTest, IdentitiesOfEveryKindSign) {
  // The status is that of the verification.
  const std::tuple<const char*, Family, int> rows[] = {
      // The name of the root decides about the requirement; that it is met takes the root itself.
      {"home-made developer", makeFamily({}, makeRoot("Apple Root CA - G3")), 3},
      {"RSA", makeFamily({.key = KeyKind::rsa}), 0},
      {"larger than the space which the platform's tool reserves",
       makeFamily({.organizations = std::vector(500, std::string(60, 'a'))}), 0},
  };
  for (const auto& [name, family, status] : rows) {
    SCOPED_TRACE(name);
    const TemporaryFolder folder;
    const fs::path file = folder / "code";
    linkImage(file);
    const auto keychain = writeKeychain(folder / "keychain", family);
    const std::string identity = family.leaf.sha1();
    EXPECT_EQ(
        problemOf(toolchain::sign({.code = file, .identity = identity, .keychain = keychain})), "");
    const auto verdict = toolchain::verify({.code = file});
    EXPECT_EQ(verdict.status, status);
    if (status == 3) {
      EXPECT_THAT(verdict.statements,
                  ElementsAre(file.string() + ": does not satisfy its designated Requirement"));
    }
    EXPECT_THAT(*toolchain::requirementsReport(file),
                ElementsAre(HasSubstr(status == 3 ? "anchor apple generic and certificate leaf"
                                                  : "and certificate leaf = H")));
  }
}

/// What no linker at hand can make; the rows of codesign have the systems that it knows.
TEST(SignTest, OnlyOldSystemsGetSHA1) {
  constexpr std::uint32_t kVisionOS = 11;
  const auto builtFor = [](std::uint32_t platform) {
    return machO({command(macho::LC_BUILD_VERSION, {platform, 0xa0300, 0xa0300, 0})});
  };
  for (const auto& [bytes, count] : {std::pair{machO({}), 1U}, std::pair{builtFor(kVisionOS), 1U},
                                     std::pair{builtFor(macho::PLATFORM_IOS), 2U}}) {
    const auto parsed = toolchain::MachOFile::parse(bytesOf(bytes));
    ASSERT_TRUE(parsed) << problemOf(parsed);
    EXPECT_EQ(toolchain::hashTypesFor(*parsed).size(), count);
  }
}

}  // namespace
