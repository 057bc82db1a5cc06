#include "signing/QVTCodeSigner.h"
#include "tests/support/Identities.h"
#include "tests/support/Test.h"

namespace {

/// With a `codesign` in PATH that does as it is told and records the arguments of its runs.
class QVTCodeSignerTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("My App.app/embedded.mobileprovision", "old profile, and longer");
    answer("exit 0");
    signer_ = QVTCodeSigner::initWithDeveloperCertificate(
        QVTDeveloperCertificate::initWithDataKeychainPath(makeRoot().der(), keychain_));
  }
  /// What `codesign` does from now on, in shell.
  void answer(const std::string& script) const {
    writeProgram(codesign_, "#!/bin/sh\necho \"$*\" >>'" + runs_ + "'\n" + script);
  }
  std::vector<std::string> takeRuns() const {
    auto runs = foundation::split(contentsOf(runs_), '\n');
    runs.pop_back();
    writeFile(runs_, "");
    return runs;
  }
  /// Domain and code of the error after a failed signing.
  std::string errorOfSigning(const std::optional<std::string>& app) const {
    std::optional<Error> error;
    EXPECT_FALSE(signer_->sign(app, &error));
    return error ? error->domain + " " + std::to_string(error->code) : "none";
  }

  const TemporaryFolder folder_;
  const std::string codesign_ = folder_ / "codesign";
  const std::string runs_ = folder_.write("runs", "");
  const ScopedEnvironment path_{
      "PATH", (folder_.path().string() + ":" SENDOFF_LIBEXEC ":/usr/bin:/bin").c_str()};
  const std::string keychain_ = folder_.write("login.pem", "");
  const std::string app_ = folder_ / "My App.app";
  const std::string entitlements_ = folder_ / "entitlements.xml";
  const std::string rules_ = folder_ / "rules.xml";
  std::shared_ptr<QVTCodeSigner> signer_;
};

TEST_F(QVTCodeSignerTest, SigningReplacesTheProfileAndRemovesWhatItSignedWith) {
  signer_->setEmbeddedProfilePath(folder_.write("new.mobileprovision", "new profile"));
  signer_->setResourceRulesPath(folder_.write("rules.xml", "rules"));
  signer_->setEntitlementsPath(entitlements_);
  const std::string keychain = " --keychain " + keychain_ + " ";
  const std::pair<const char*, std::string> cases[] = {
      {"<plist/>", keychain + "--entitlements " + entitlements_ + " " + app_},
      {"", keychain + app_}};
  for (const auto& [content, options] : cases) {
    writeFile(entitlements_, content);
    ASSERT_TRUE(signer_->sign(app_));
    EXPECT_THAT(takeRuns(), ElementsAre(EndsWith(options), EndsWith("-vv " + app_)));
    EXPECT_EQ(contentsOf(app_ + "/embedded.mobileprovision"), "new profile");
    EXPECT_FALSE(fs::exists(rules_) || fs::exists(entitlements_));
    fs::remove(app_ + "/embedded.mobileprovision");
  }
  EXPECT_TRUE(signer_->sign(app_)) << "entitlements that are gone count as none";
  takeRuns();

  answer("exit 3");
  writeFile(entitlements_, "");
  EXPECT_EQ(errorOfSigning(app_), "QVTCodeSignerErrorDomain -2");
  EXPECT_THAT(takeRuns(), SizeIs(1)) << "nothing is verified then";
  EXPECT_TRUE(fs::exists(entitlements_));
}

TEST_F(QVTCodeSignerTest, WithoutItsInputNothingIsRun) {
  EXPECT_EQ(errorOfSigning(std::nullopt), "QVTCodeSignerErrorDomain -1");
  // From here on it is the file manager's own error.
  signer_->setEmbeddedProfilePath(keychain_);
  EXPECT_EQ(errorOfSigning(folder_ / "Missing.app"),
            "NSPOSIXErrorDomain " + std::to_string(ENOENT));
  signer_->setEntitlementsPath(folder_.path());
  EXPECT_EQ(errorOfSigning(app_), "NSPOSIXErrorDomain " + std::to_string(EISDIR));
  EXPECT_THAT(takeRuns(), IsEmpty());
}

TEST_F(QVTCodeSignerTest, FailedVerificationIsOnlyLogged) {
  const auto verify = [&] {
    std::optional<Error> error = Error{"before", 1, {}};
    EXPECT_TRUE(signer_->verifyCodeSigningForBundleAtPath(app_, &error));
    EXPECT_FALSE(error);
  };
  answer("exit 3");
  const std::string warning = "Warning: the app as it came does not verify: ";
  EXPECT_THAT(logOf(verify), EndsWith(warning + "codesign ended with status 3\n"));
  answer("echo x; echo y; printf 'one\\n\\ntwo\\033[31m\\r\\n' >&2; exit 1");
  std::vector<std::string> lines;
  signer_->setLogFunc([&](const std::string& line) { lines.push_back(line); });
  EXPECT_THAT(logOf(verify), EndsWith(warning + "one; two\\u001b[31m\\r; x\n"));
  const std::string output = "one\n\ntwo\x1b[31m\r\n";
  EXPECT_THAT(lines, ElementsAre("Verifying code sign at: " + app_, codesign_ + " -vv " + app_,
                                 output, "x\ny\n", "Status: 1",
                                 "Warning: codesign verification failed: " + output));
  answer("[ $1 = --sign ]");
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(signer_->sign(app_)); }),
              HasSubstr("the app as it was signed does not verify: "));
}

TEST_F(QVTCodeSignerTest, ExportSucceedsByStatusOrByItsFiles) {
  const auto exports = [&](const std::string& script) {
    answer(script);
    return signer_->exportAppEntitlementsToPathResourceRulesToPath(app_, entitlements_, rules_);
  };
  EXPECT_TRUE(exports("exit 0")) << "whatever it left";
  EXPECT_FALSE(exports(">'" + rules_ + "'; exit 1"));
  EXPECT_TRUE(exports(">'" + entitlements_ + "'; exit 1")) << "failed, but both files are there";
  fs::remove(rules_);
  EXPECT_FALSE(exports("exit 1"));
}

}  // namespace
