#include "signing/QVTCodeSigner.h"
#include "tests/signing/RecordedTools.h"
#include "tests/support/Identities.h"

namespace {

const std::string kAllocate = SENDOFF_LIBEXEC "/codesign_allocate";
const std::string kEnvironment = "CODESIGN_ALLOCATE=" + kAllocate + " ";

class QVTCodeSignerTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("My App.app/embedded.mobileprovision", "old profile, and longer");
    fs::permissions(folder_.write("login.pem", leaf_.keyPEM()), fs::perms::owner_all);
    signer_ = makeSigner();
  }
  std::shared_ptr<QVTCodeSigner> makeSigner() const {
    return QVTCodeSigner::initWithDeveloperCertificate(
        QVTDeveloperCertificate::initWithDataKeychainPath(leaf_.der(), keychain_));
  }
  /// Domain and code of the error, which is then forgotten.
  std::string takeError() {
    const auto error = std::exchange(error_, {}).value_or(Error{"none", 0, {}});
    return error.domain + " " + std::to_string(error.code);
  }

  const TemporaryFolder folder_;
  const RecordedTools tools_;
  const MadeIdentity leaf_ = makeLeaf(makeRoot());
  const std::string keychain_ = folder_ / "login.pem";
  const std::string app_ = folder_ / "My App.app";
  const std::string entitlements_ = folder_ / "entitlements.xml";
  const std::string rules_ = folder_ / "rules.xml";
  std::shared_ptr<QVTCodeSigner> signer_;
  std::optional<Error> error_;
};

TEST_F(QVTCodeSignerTest, ToolsAreFoundThroughXcrun) {
  EXPECT_EQ(signer_->toolPath(), tools_.codesign());
  EXPECT_EQ(signer_->allocatePath(), kAllocate);
  EXPECT_TRUE(signer_->checkToolPathsWithError(&error_));
  for (const char* const missing : {"codesign", "codesign_allocate"}) {
    tools_.answerXcrun("[ $2 != " + std::string(missing) + " ] && echo /found");
    EXPECT_FALSE(makeSigner()->checkToolPathsWithError(&error_));
    EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain " +
                               std::string(missing == std::string("codesign") ? "-4" : "-5"));
    tools_.answerXcrun("[ $2 != " + std::string(missing) + " ] || printf '\\377'");
    EXPECT_FALSE(makeSigner()) << "not a text";
  }
}

TEST_F(QVTCodeSignerTest, SigningRunsTheToolAndVerifies) {
  const auto profile = folder_.write("new.mobileprovision", "new profile");
  folder_.write("rules.xml", "rules");
  signer_->setEmbeddedProfilePath(profile);
  signer_->setResourceRulesPath(rules_);
  signer_->setEntitlementsPath(entitlements_);
  const std::string sign = kEnvironment + "--sign " + leaf_.sha1() +
                           " --all-architectures --force --keychain " + keychain_ + " ";
  const std::pair<const char*, std::string> cases[] = {
      {"<plist/>", "--entitlements " + entitlements_ + " "}, {"", ""}};
  for (const auto& [content, option] : cases) {
    writeFile(entitlements_, content);
    ASSERT_TRUE(signer_->sign(app_));
    EXPECT_THAT(tools_.takeRuns(), ElementsAre(sign + option + app_, kEnvironment + "-vv " + app_));
    EXPECT_EQ(contentsOf(app_ + "/embedded.mobileprovision"), "new profile");
    EXPECT_FALSE(fs::exists(rules_) || fs::exists(entitlements_)) << "deleted after success";
    fs::remove(app_ + "/embedded.mobileprovision");
  }
  EXPECT_TRUE(signer_->sign(app_)) << "entitlements that are gone count as none";
}

TEST_F(QVTCodeSignerTest, WithoutItsInputNothingIsRun) {
  EXPECT_FALSE(signer_->sign(std::nullopt, &error_));
  EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain -1");
  signer_->setEmbeddedProfilePath(folder_ / "missing.mobileprovision");
  EXPECT_FALSE(signer_->sign(app_, &error_));
  EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain -1");
  // From here on it is the file manager's own error.
  signer_->setEmbeddedProfilePath(keychain_);
  EXPECT_FALSE(signer_->sign(folder_ / "Missing.app", &error_));
  EXPECT_EQ(takeError(), "NSPOSIXErrorDomain " + std::to_string(ENOENT));
  signer_->setEntitlementsPath(folder_.path());
  EXPECT_FALSE(signer_->sign(app_, &error_));
  EXPECT_EQ(takeError(), "NSPOSIXErrorDomain " + std::to_string(EISDIR));
  EXPECT_THAT(tools_.takeRuns(), IsEmpty());
}

TEST_F(QVTCodeSignerTest, FailedSigningTellsTheRun) {
  tools_.answer("echo some output; echo no identity >&2; exit 3");
  writeFile(entitlements_, "");
  signer_->setEntitlementsPath(entitlements_);
  EXPECT_FALSE(signer_->sign(app_, &error_));
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->userInfo,
            (Dictionary{{"command", tools_.codesign()},
                        {"arguments", Array{"--sign", leaf_.sha1(), "--all-architectures",
                                            "--force", "--keychain", keychain_, app_}},
                        {"environment", Dictionary{{"CODESIGN_ALLOCATE", kAllocate}}},
                        {"status", 3},
                        {"stderr", "no identity\n"},
                        {"stdout", "some output\n"}}));
  EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain -2");
  EXPECT_THAT(tools_.takeRuns(), SizeIs(1)) << "nothing is verified";
  EXPECT_TRUE(fs::exists(entitlements_));
  fs::remove(tools_.codesign());
  EXPECT_THROW(signer_->sign(app_), foundation::Exception) << "cannot be launched";
}

TEST_F(QVTCodeSignerTest, FailedVerificationIsOnlyLogged) {
  std::vector<std::string> lines;
  signer_->setLogFunc([&](const std::string& line) { lines.push_back(line); });
  const auto verify = [&] {
    error_ = Error{"before", 1, {}};
    EXPECT_TRUE(signer_->verifyCodeSigningForBundleAtPath(app_, &error_));
    EXPECT_FALSE(error_);
  };
  EXPECT_EQ(logOf(verify), "");
  tools_.answer("exit 3");
  const std::string warning = "Warning: the app as it came does not verify: ";
  EXPECT_THAT(logOf(verify), EndsWith(warning + "codesign ended with status 3\n"));
  tools_.answer("echo x; echo y; printf 'one\\n\\ntwo\\033[31m\\r\\n' >&2; exit 1");
  lines.clear();
  EXPECT_THAT(logOf(verify), EndsWith(warning + "one; two\\u001b[31m\\r; x\n"));
  const std::string output = "one\n\ntwo\x1b[31m\r\n";
  EXPECT_THAT(lines, ElementsAre("Verifying code sign at: " + app_,
                                 tools_.codesign() + " -vv " + app_, output, "x\ny\n", "Status: 1",
                                 "Warning: codesign verification failed: " + output));
  tools_.answer("[ $1 = --sign ]");
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(signer_->sign(app_)); }),
              HasSubstr("the app as it was signed does not verify: "));
}

TEST_F(QVTCodeSignerTest, ExportSucceedsByStatusOrByItsFiles) {
  const auto exports = [&](const std::string& script) {
    tools_.answer(script);
    return signer_->exportAppEntitlementsToPathResourceRulesToPath(app_, entitlements_, rules_);
  };
  EXPECT_TRUE(exports("exit 0")) << "whatever it left";
  EXPECT_THAT(tools_.takeRuns(), ElementsAre(kEnvironment + "--display --resource-rules " + rules_ +
                                             " --entitlements :" + entitlements_ + " " + app_));
  EXPECT_FALSE(exports(">'" + rules_ + "'; exit 1"));
  EXPECT_TRUE(exports(">'" + entitlements_ + "'; exit 1")) << "failed, but both files are there";
  fs::remove(rules_);
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(exports("echo problem >&2; exit 1")); }),
              EndsWith("Exporting entitlements: " + tools_.codesign() +
                       " ended with status 1: problem\\n\n"));
}

}  // namespace
