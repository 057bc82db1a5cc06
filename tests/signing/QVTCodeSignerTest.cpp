#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "signing/QVTCodeSigner.h"
#include "tests/support/Identities.h"
#include "tests/support/StandInSigner.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using Run = test::StandInSigner::Run;
using foundation::Array;
using foundation::Dictionary;
using foundation::Error;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

class QVTCodeSignerTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::permissions(folder_.write("login.pem", leaf_.keyPEM()), fs::perms::owner_all);
    folder_.write("My App.app/Info.plist", "info");
    app_ = (folder_ / "My App.app").string();
  }

  std::shared_ptr<QVTCodeSigner> signerWithKeychain(std::optional<std::string> path) const {
    return QVTCodeSigner::initWithDeveloperCertificate(
        QVTDeveloperCertificate::initWithDataKeychainPath(leaf_.der(), std::move(path)));
  }
  std::shared_ptr<QVTCodeSigner> signer() const {
    return signerWithKeychain((folder_ / "login.pem").string());
  }

  test::TemporaryFolder folder_;
  test::StandInSigner tools_;
  test::ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  test::MadeIdentity leaf_ = test::makeLeaf(test::makeRoot());
  std::string app_;
};

TEST_F(QVTCodeSignerTest, ToolsAreFoundThroughXcrun) {
  std::optional<Error> error;
  const auto found = signer();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->toolPath(), tools_.codesign().string());
  EXPECT_EQ(found->allocatePath(), tools_.codesignAllocate().string());
  EXPECT_TRUE(found->checkToolPathsWithError(&error));

  tools_.forgetTool("codesign_allocate");
  EXPECT_FALSE(signer()->checkToolPathsWithError(&error));
  EXPECT_EQ(error->domain, "QVTCodeSignerErrorDomain");
  EXPECT_EQ(error->code, -5);
  EXPECT_THAT(error->userInfo, IsEmpty());

  tools_.forgetTool("codesign");
  EXPECT_FALSE(signer()->checkToolPathsWithError(&error));
  EXPECT_EQ(error->code, -4);

  const test::ScopedEnvironment path("PATH", (folder_ / "nothing").c_str());
  error.reset();
  EXPECT_FALSE(signer()->checkToolPathsWithError(&error)) << "no xcrun either";
  EXPECT_EQ(error->code, -4);
}

TEST_F(QVTCodeSignerTest, SigningRunsTheToolAndVerifies) {
  const auto own = signer();
  ASSERT_TRUE(own->sign(app_));
  const auto calls = tools_.calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_THAT(calls[0].arguments,
              ElementsAre("--sign", leaf_.sha1(), "--all-architectures", "--force", "--keychain",
                          (folder_ / "login.pem").string(), app_));
  EXPECT_THAT(calls[1].arguments, ElementsAre("-vv", app_));
  for (const auto& call : calls) {
    EXPECT_THAT(call.environment,
                ElementsAre(Pair("CODESIGN_ALLOCATE", tools_.codesignAllocate().string())));
  }
}

TEST_F(QVTCodeSignerTest, DefaultKeychainsAreNotNamed) {
  fs::permissions(folder_.write("Library/Keychains/login.pem", leaf_.keyPEM()),
                  fs::perms::owner_all);
  ASSERT_TRUE(signerWithKeychain(std::nullopt)->sign(app_));
  EXPECT_THAT(tools_.calls()[0].arguments,
              ElementsAre("--sign", leaf_.sha1(), "--all-architectures", "--force", app_));
}

TEST_F(QVTCodeSignerTest, EntitlementsAreGivenUnlessEmptyAndDeletedAfterSuccess) {
  const auto rules = folder_.write("rules.xml", "rules").string();
  for (const std::string content : {"", "<plist/>"}) {
    SCOPED_TRACE(content);
    const auto entitlements = folder_.write("entitlements.xml", content).string();
    const auto own = signer();
    own->setEntitlementsPath(entitlements);
    own->setResourceRulesPath(rules);
    ASSERT_TRUE(own->sign(app_));
    const auto call = tools_.calls().end()[-2];
    EXPECT_EQ(call.arguments.end()[-3] == "--entitlements", !content.empty());
    EXPECT_EQ(call.entitlements, content);
    EXPECT_FALSE(fs::exists(entitlements));
    EXPECT_FALSE(fs::exists(rules));
    EXPECT_EQ(own->entitlementsPath(), entitlements) << "the signer keeps the path";
  }
}

TEST_F(QVTCodeSignerTest, ProfileReplacesTheOneInTheApp) {
  const auto profile = folder_.write("new.mobileprovision", "new profile").string();
  const auto own = signer();
  own->setEmbeddedProfilePath(profile);
  ASSERT_TRUE(own->sign(app_)) << "an app without a profile";
  folder_.write("My App.app/embedded.mobileprovision", "old profile, and longer");
  ASSERT_TRUE(own->sign(app_)) << "an app with a profile";
  for (const std::size_t call : {0u, 2u}) {
    EXPECT_EQ(tools_.calls()[call].embeddedProfile, "new profile");
  }
}

TEST_F(QVTCodeSignerTest, SigningWithoutItsInputFailsBeforeAnyRun) {
  const auto own = signer();
  std::optional<Error> error;
  EXPECT_FALSE(own->sign(std::nullopt, &error));
  EXPECT_EQ(error->code, -1);
  error.reset();
  own->setEmbeddedProfilePath((folder_ / "missing.mobileprovision").string());
  EXPECT_FALSE(own->sign(app_, &error));
  EXPECT_EQ(error->code, -1);
  EXPECT_THAT(error->userInfo, IsEmpty());
  own->setEmbeddedProfilePath((folder_ / "login.pem").string());
  error.reset();
  EXPECT_FALSE(own->sign((folder_ / "Missing.app").string(), &error));
  ASSERT_TRUE(error);
  EXPECT_NE(error->domain, "QVTCodeSignerErrorDomain") << "the file manager's own error";
  EXPECT_THAT(tools_.calls(), IsEmpty());
}

TEST_F(QVTCodeSignerTest, FailedSigningTellsTheRun) {
  tools_.setStatus(Run::sign, 3);
  tools_.setOutput(Run::sign, "some output\n", "no identity found\n");
  const auto entitlements = folder_.write("entitlements.xml", "x").string();
  const auto own = signer();
  own->setEntitlementsPath(entitlements);
  std::optional<Error> error;
  EXPECT_FALSE(own->sign(app_, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, -2);
  const auto arguments = tools_.calls()[0].arguments;
  EXPECT_EQ(error->userInfo,
            (Dictionary{{"command", tools_.codesign().string()},
                        {"arguments", Array(arguments.begin(), arguments.end())},
                        {"environment",
                         Dictionary{{"CODESIGN_ALLOCATE", tools_.codesignAllocate().string()}}},
                        {"status", 3},
                        {"stderr", "no identity found\n"},
                        {"stdout", "some output\n"}}));
  EXPECT_EQ(tools_.calls().size(), 1u) << "nothing is verified";
  EXPECT_TRUE(fs::exists(entitlements));
}

TEST_F(QVTCodeSignerTest, FailedVerificationIsOnlyLogged) {
  tools_.setStatus(Run::verify, 1);
  tools_.setOutput(Run::verify, "", "not signed at all\n");
  const auto own = signer();
  std::vector<std::string> lines;
  own->setLogFunc([&](const std::string& line) { lines.push_back(line); });
  std::optional<Error> error = Error{.domain = "before", .code = 1, .userInfo = {}};
  EXPECT_TRUE(own->verifyCodeSigningForBundleAtPath(app_, &error));
  EXPECT_FALSE(error);
  EXPECT_THAT(lines, ElementsAre("Verifying code sign at: " + app_,
                                 tools_.codesign().string() + " -vv " + app_, "not signed at all\n",
                                 "", "Status: 1",
                                 "Warning: codesign verification failed: not signed at all\n"));
}

TEST_F(QVTCodeSignerTest, TheSystemLogGetsTheFirstLinesOfAFailedVerification) {
  const auto logOf = [&](const std::function<void(const QVTCodeSigner&)>& use) {
    testing::internal::CaptureStderr();
    use(*signer());
    return testing::internal::GetCapturedStderr();
  };
  const auto came = [&](const auto& one) { one.verifyCodeSigningForBundleAtPath(app_); };
  EXPECT_EQ(logOf(came), "");
  tools_.setStatus(Run::verify, 3);
  EXPECT_THAT(logOf(came), HasSubstr("Warning: the app as it came does not verify: codesign ended "
                                     "with status 3\n"));
  tools_.setOutput(Run::verify, "file added: x\nfile added: y\n", "one\n\ntwo\x1b[31m\r\n");
  EXPECT_THAT(logOf(came), HasSubstr(": one; two\\u001b[31m\\r; file added: x\n"));
  EXPECT_THAT(logOf([&](const auto& one) { EXPECT_TRUE(one.sign(app_)); }),
              HasSubstr("Warning: the app as it was signed does not verify: one; "));
}

TEST_F(QVTCodeSignerTest, ExportSucceedsByStatusOrByItsFiles) {
  const auto entitlements = (folder_ / "out/entitlements.xml").string();
  const auto rules = (folder_ / "out/rules.xml").string();
  const auto exported = [&] {
    fs::remove_all(folder_ / "out");
    fs::create_directory(folder_ / "out");
    return signer()->exportAppEntitlementsToPathResourceRulesToPath(app_, entitlements, rules);
  };
  EXPECT_TRUE(exported());
  EXPECT_THAT(test::contentsOf(entitlements), HasSubstr("beta-reports-active"));
  EXPECT_THAT(tools_.calls()[0].arguments, ElementsAre("--display", "--resource-rules", rules,
                                                       "--entitlements", ":" + entitlements, app_));
  tools_.setStatus(Run::display, 1);
  EXPECT_TRUE(exported()) << "failed, but both files are there";
  tools_.leaveOutResourceRules();
  EXPECT_FALSE(exported());
  tools_.setStatus(Run::display, 0);
  EXPECT_TRUE(exported()) << "succeeded, whatever it left";
}

TEST_F(QVTCodeSignerTest, ToolThatCannotBeLaunchedIsAnException) {
  const auto own = signer();
  fs::remove(tools_.codesign());
  EXPECT_THROW(own->sign(app_), foundation::Exception);
}

}  // namespace
