#include "signing/QVTCodeSigner.h"
#include "tests/signing/RecordedTools.h"
#include "tests/support/Identities.h"

namespace {

const std::string kAllocate = SENDOFF_LIBEXEC "/codesign_allocate";
const std::string kEnvironment = "CODESIGN_ALLOCATE=" + kAllocate + " ";

class QVTCodeSignerTest : public testing::Test {
 protected:
  void SetUp() override {
    tools_.answer("exit 0");
    folder_.write("My App.app/embedded.mobileprovision", "old profile, and longer");
    for (const fs::path keychain : {keychain_, fs::path(folder_ / "Library/Keychains/login.pem")}) {
      fs::permissions(writeFile(keychain, leaf_.keyPEM()), fs::perms::owner_all);
    }
  }
  std::shared_ptr<QVTCodeSigner> signer(bool withKeychain = true) const {
    return QVTCodeSigner::initWithDeveloperCertificate(
        QVTDeveloperCertificate::initWithDataKeychainPath(
            leaf_.der(), withKeychain ? std::optional(keychain_.string()) : std::nullopt));
  }
  /// Domain and code of the error, which is then forgotten.
  std::string takeError() {
    const auto error = std::exchange(error_, {}).value_or(Error{"none", 0, {}});
    return error.domain + " " + std::to_string(error.code);
  }

  const TemporaryFolder folder_;
  const ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  const RecordedTools tools_;
  const MadeIdentity leaf_ = makeLeaf(makeRoot());
  const fs::path keychain_ = folder_ / "login.pem";
  const std::string app_ = folder_ / "My App.app";
  std::optional<Error> error_;
};

TEST_F(QVTCodeSignerTest, ToolsAreFoundThroughXcrun) {
  EXPECT_EQ(signer()->toolPath(), tools_.codesign());
  EXPECT_EQ(signer()->allocatePath(), kAllocate);
  EXPECT_TRUE(signer()->checkToolPathsWithError(&error_));
  const std::pair<const char*, const char*> cases[] = {
      {"[ $2 = codesign ] && echo /found", "QVTCodeSignerErrorDomain -5"},
      {"[ $2 != codesign ] && echo /found", "QVTCodeSignerErrorDomain -4"},
      {"exit 72", "QVTCodeSignerErrorDomain -4"}};
  for (const auto& [script, error] : cases) {
    tools_.answerXcrun(script);
    EXPECT_FALSE(signer()->checkToolPathsWithError(&error_));
    EXPECT_EQ(takeError(), error) << script;
  }
  tools_.answerXcrun("printf '\\377'");
  EXPECT_FALSE(signer()) << "not a text";
}

TEST_F(QVTCodeSignerTest, SigningRunsTheToolAndVerifies) {
  const auto profile = folder_.write("new.mobileprovision", "new profile");
  const auto rules = folder_.write("rules.xml", "rules");
  const auto entitlements = folder_.write("entitlements.xml", "<plist/>");
  const std::string sign =
      kEnvironment + "--sign " + leaf_.sha1() + " --all-architectures --force ";
  auto own = signer();
  own->setEmbeddedProfilePath(profile);
  own->setResourceRulesPath(rules);
  own->setEntitlementsPath(entitlements);
  ASSERT_TRUE(own->sign(app_));
  EXPECT_THAT(tools_.takeRuns(),
              ElementsAre(sign + "--keychain " + keychain_.string() + " --entitlements " +
                              entitlements.string() + " " + app_,
                          kEnvironment + "-vv " + app_));
  EXPECT_EQ(contentsOf(app_ + "/embedded.mobileprovision"), "new profile");
  EXPECT_FALSE(fs::exists(rules) || fs::exists(entitlements)) << "deleted after success";
  EXPECT_TRUE(own->sign(app_)) << "entitlements that are gone count as none";

  fs::remove(app_ + "/embedded.mobileprovision");
  folder_.write("entitlements.xml", "");
  own = signer(false);
  own->setEmbeddedProfilePath(profile);
  own->setEntitlementsPath(entitlements);
  tools_.takeRuns();
  ASSERT_TRUE(own->sign(app_)) << "default keychains, empty entitlements, an app without profile";
  EXPECT_THAT(tools_.takeRuns(), ElementsAre(sign + app_, kEnvironment + "-vv " + app_));
  EXPECT_EQ(contentsOf(app_ + "/embedded.mobileprovision"), "new profile");
}

TEST_F(QVTCodeSignerTest, WithoutItsInputNothingIsRun) {
  const auto own = signer();
  EXPECT_FALSE(own->sign(std::nullopt, &error_));
  EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain -1");
  own->setEmbeddedProfilePath(folder_ / "missing.mobileprovision");
  EXPECT_FALSE(own->sign(app_, &error_));
  EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain -1");
  // From here on it is the file manager's own error.
  own->setEmbeddedProfilePath(keychain_);
  EXPECT_FALSE(own->sign(folder_ / "Missing.app", &error_));
  EXPECT_EQ(takeError(), "NSPOSIXErrorDomain " + std::to_string(ENOENT));
  own->setEntitlementsPath(folder_.path());
  EXPECT_FALSE(own->sign(app_, &error_));
  EXPECT_EQ(takeError(), "NSPOSIXErrorDomain " + std::to_string(EISDIR));
  EXPECT_THAT(tools_.takeRuns(), IsEmpty());
}

TEST_F(QVTCodeSignerTest, FailedSigningTellsTheRun) {
  tools_.answer("echo some output; echo no identity >&2; exit 3");
  const auto entitlements = folder_.write("entitlements.xml", "x");
  const auto own = signer();
  own->setEntitlementsPath(entitlements);
  EXPECT_FALSE(own->sign(app_, &error_));
  ASSERT_TRUE(error_);
  EXPECT_EQ(error_->userInfo,
            (Dictionary{{"command", tools_.codesign()},
                        {"arguments", Array{"--sign", leaf_.sha1(), "--all-architectures",
                                            "--force", "--keychain", keychain_.string(),
                                            "--entitlements", entitlements.string(), app_}},
                        {"environment", Dictionary{{"CODESIGN_ALLOCATE", kAllocate}}},
                        {"status", 3},
                        {"stderr", "no identity\n"},
                        {"stdout", "some output\n"}}));
  EXPECT_EQ(takeError(), "QVTCodeSignerErrorDomain -2");
  EXPECT_THAT(tools_.takeRuns(), SizeIs(1)) << "nothing is verified";
  EXPECT_TRUE(fs::exists(entitlements));
  fs::remove(tools_.codesign());
  EXPECT_THROW(own->sign(app_), foundation::Exception) << "cannot be launched";
}

TEST_F(QVTCodeSignerTest, FailedVerificationIsOnlyLogged) {
  const auto own = signer();
  std::vector<std::string> lines;
  own->setLogFunc([&](const std::string& line) { lines.push_back(line); });
  error_ = Error{"before", 1, {}};
  const auto verify = [&] {
    EXPECT_TRUE(own->verifyCodeSigningForBundleAtPath(app_, &error_));
    EXPECT_EQ(takeError(), "none 0");
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
  tools_.answer("[ $1 = --sign ] || exit 3");
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(own->sign(app_)); }),
              HasSubstr("the app as it was signed does not verify: "));
}

TEST_F(QVTCodeSignerTest, ExportSucceedsByStatusOrByItsFiles) {
  const std::string entitlements = folder_ / "entitlements.xml";
  const std::string rules = folder_ / "rules.xml";
  const auto exports = [&](const std::string& script) {
    tools_.answer(script);
    return signer()->exportAppEntitlementsToPathResourceRulesToPath(app_, entitlements, rules);
  };
  EXPECT_TRUE(exports("exit 0")) << "whatever it left";
  EXPECT_THAT(tools_.takeRuns(), ElementsAre(kEnvironment + "--display --resource-rules " + rules +
                                             " --entitlements :" + entitlements + " " + app_));
  EXPECT_FALSE(exports(">'" + rules + "'; exit 1"));
  EXPECT_TRUE(exports(">'" + entitlements + "'; exit 1")) << "failed, but both files are there";
  fs::remove(rules);
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(exports("echo problem >&2; exit 1")); }),
              EndsWith("Exporting entitlements: " + tools_.codesign() +
                       " ended with status 1: problem\\n\n"));
}

}  // namespace
