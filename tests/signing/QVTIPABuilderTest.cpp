#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/base/Format.h"
#include "foundation/format/PropertyList.h"
#include "signing/QVTIPABuilder.h"
#include "tests/support/Identities.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/StandInSigner.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
namespace PropertyList = foundation::PropertyList;
using Run = test::StandInSigner::Run;
using foundation::Array;
using foundation::Data;
using foundation::Dictionary;
using foundation::Error;
using foundation::Value;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kMark = "QuorvantileSignedForDistribution";

class QVTIPABuilderTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::permissions(folder_.write("login.pem", leaf_.keyPEM()), fs::perms::owner_all);
    const auto profile = test::makeProvisioningProfile(
        test::ProfileOptions{.developerCertificates = {leaf_.der()}}.dictionary(), leaf_);
    profile_ = QVTProvisioningProfile::initWithPathKeychainPath(
        folder_.write("embedded.mobileprovision", profile.text()).string(),
        (folder_ / "login.pem").string());
    ASSERT_TRUE(profile_);
    writeInfo({{"CFBundleIdentifier", "com.example.app"}});
    folder_.write("My App.app/Größe.txt", "content");
    fs::create_symlink("Größe.txt", app() / "link");
    fs::create_directory(folder_ / "tmp");
  }

  fs::path app() const { return folder_ / "My App.app"; }
  void writeInfo(const Dictionary& info) const {
    fs::create_directories(app());
    ASSERT_TRUE(PropertyList::writeToFileAtomically(info, app() / "Info.plist"));
  }
  std::shared_ptr<QVTIPABuilder> builder() const {
    return QVTIPABuilder::initWithProvisioningProfileDeveloperCertificate(
        profile_, profile_->certWithPrivateKeyAvailable());
  }
  bool package(const fs::path& destination) {
    error_.reset();
    return builder()->packageSourceToDestinationPath(app().string(), destination.string(), &error_);
  }
  /// The code of the failure, checked for what every failure has; 0 for success.
  long failureOfPackaging() {
    if (package(folder_ / "out/App.ipa")) return 0;
    EXPECT_EQ(error_->domain, "QVTIPABuilderErrorDomain");
    const auto source = stringAt(error_->userInfo, "SourcePath").value_or("none");
    EXPECT_THAT(source, StartsWith((folder_ / "tmp/com.quorvantile.ipas/").string()));
    return error_->code;
  }
  const Error* underlying() const {
    const Value* value = find(error_->userInfo, "UnderlyingError");
    return value ? value->error() : nullptr;
  }
  std::vector<std::string> workFolders() const {
    std::vector<std::string> names;
    if (!fs::exists(folder_ / "tmp/com.quorvantile.ipas")) return names;
    for (const auto& entry : fs::directory_iterator(folder_ / "tmp/com.quorvantile.ipas")) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
  fs::path unzipped(const fs::path& ipa) const {
    const fs::path target = folder_ / "unzipped";
    fs::remove_all(target);
    test::outputOf({"unzip", "-q", ipa, "-d", target});
    return target;
  }

  test::TemporaryFolder folder_;
  test::StandInSigner tools_;
  test::ScopedEnvironment home_{"HOME", folder_.path().c_str()};
  test::ScopedEnvironment temporary_{"TMPDIR", (folder_ / "tmp").c_str()};
  test::MadeIdentity leaf_ = test::makeLeaf(test::makeRoot());
  std::shared_ptr<QVTProvisioningProfile> profile_;
  std::optional<Error> error_;
};

TEST_F(QVTIPABuilderTest, AppIsMarkedSignedAndZipped) {
  ASSERT_TRUE(package(folder_ / "new/folder/My App.ipa")) << error_->description();
  const auto calls = tools_.calls();
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[0].arguments[0], "-vv");
  EXPECT_EQ(calls[1].arguments[0], "--display");
  EXPECT_EQ(calls[2].arguments[0], "--sign");
  EXPECT_EQ(calls[3].arguments[0], "-vv");
  EXPECT_THAT(calls[1].infoPlist, Not(HasSubstr(kMark)));
  EXPECT_THAT(calls[2].infoPlist, HasSubstr(kMark)) << "marked before it is signed";
  EXPECT_EQ(calls[2].embeddedProfile, test::contentsOf(profile_->path()));
  EXPECT_THAT(calls[2].entitlements,
              AllOf(HasSubstr("application-identifier"), Not(HasSubstr("beta-reports-active"))));

  const fs::path root = unzipped(folder_ / "new/folder/My App.ipa");
  std::vector<std::string> payload;
  for (const auto& entry : fs::directory_iterator(root / "Payload")) {
    payload.push_back(entry.path().filename());
  }
  EXPECT_THAT(payload, ElementsAre("My App.app")) << "no exported files";
  const fs::path packed = root / "Payload/My App.app";
  EXPECT_EQ(test::contentsOf(packed / "Größe.txt"), "content");
  EXPECT_EQ(fs::read_symlink(packed / "link"), "Größe.txt");
  EXPECT_THAT(workFolders(), IsEmpty());
  EXPECT_THAT(test::contentsOf(app() / "Info.plist"), Not(HasSubstr(kMark))) << "the source stays";
}

TEST_F(QVTIPABuilderTest, MarkedAppIsPackedAsItStands) {
  const auto own = builder();
  struct Case {
    Value mark;
    bool counts;
  };
  for (const auto& c : std::vector<Case>{{true, true},
                                         {1, true},
                                         {"YES", true},
                                         {"true", true},
                                         {false, false},
                                         {0, false},
                                         {"NO", false},
                                         {Array{true}, false}}) {
    SCOPED_TRACE(foundation::description(c.mark));
    writeInfo({{kMark, c.mark}});
    EXPECT_EQ(own->infoPlistAlreadyHasDistribution(app().string()), c.counts);
  }
  writeInfo({{kMark, "NO"}});
  EXPECT_EQ(failureOfPackaging(), 0);
  const auto callsOfOneSigning = tools_.calls().size();
  EXPECT_GT(callsOfOneSigning, 0u);
  writeInfo({{kMark, "YES"}});
  EXPECT_EQ(failureOfPackaging(), 0);
  EXPECT_EQ(tools_.calls().size(), callsOfOneSigning) << "neither checked nor signed";
}

TEST_F(QVTIPABuilderTest, EachFailingStepHasItsCode) {
  EXPECT_EQ(failureOfPackaging(), 0) << "the case that the others differ from";

  tools_.setStatus(Run::verify, 1);
  EXPECT_EQ(failureOfPackaging(), 0) << "an app that was never signed";

  fs::remove_all(folder_ / "out");
  folder_.write("out", "a file where the destination's folder should be");
  EXPECT_EQ(failureOfPackaging(), -1);
  EXPECT_TRUE(underlying());
  fs::remove_all(folder_ / "tmp/com.quorvantile.ipas");

  fs::remove(folder_ / "out");
  tools_.setStatus(Run::sign, 1);
  EXPECT_EQ(failureOfPackaging(), -6);
  ASSERT_TRUE(underlying());
  EXPECT_EQ(underlying()->code, -2);
  EXPECT_THAT(workFolders(), testing::SizeIs(1)) << "left in place after a failure";
  EXPECT_EQ(error_->userInfo.size(), 2u);

  writeInfo({{"CFBundleIdentifier", "com.example.app"}});
  fs::remove(profile_->path());
  EXPECT_EQ(failureOfPackaging(), -5);
  ASSERT_TRUE(underlying());
  EXPECT_EQ(underlying()->code, -1);

  fs::remove(app() / "Info.plist");
  EXPECT_EQ(failureOfPackaging(), -9);

  tools_.setEntitlements("no property list");
  EXPECT_EQ(failureOfPackaging(), -13);
  tools_.setEntitlements("");
  EXPECT_EQ(failureOfPackaging(), -13);
  tools_.leaveOutEntitlements();
  EXPECT_EQ(failureOfPackaging(), -13);
  tools_.setStatus(Run::display, 1);
  EXPECT_EQ(failureOfPackaging(), -10);
  EXPECT_FALSE(underlying());

  tools_.forgetTool("codesign_allocate");
  EXPECT_EQ(failureOfPackaging(), -12);
  ASSERT_TRUE(underlying());
  EXPECT_EQ(underlying()->code, -5);

  fs::remove_all(app());
  EXPECT_EQ(failureOfPackaging(), -2);

  fs::remove_all(folder_ / "tmp/com.quorvantile.ipas");
  folder_.write("tmp/com.quorvantile.ipas", "a file in the way");
  EXPECT_EQ(failureOfPackaging(), -1);
  EXPECT_TRUE(underlying());
}

TEST_F(QVTIPABuilderTest, FailedZipTellsItsRun) {
  const auto destination = folder_.write("out/App.ipa", "no archive");
  EXPECT_EQ(failureOfPackaging(), -8);
  EXPECT_EQ(error_->userInfo.size(), 6u);
  EXPECT_THAT(stringAt(error_->userInfo, "command").value_or(""), EndsWith("/zip"));
  EXPECT_EQ(*arrayAt(error_->userInfo, "arguments"),
            (Array{"-q", "--symlinks", "-r", destination.string(), "Payload"}));
  EXPECT_NE(find(error_->userInfo, "status")->integerValue().value_or(0), 0);
  EXPECT_THAT(stringAt(error_->userInfo, "stderr").value_or("") +
                  stringAt(error_->userInfo, "stdout").value_or(""),
              HasSubstr("zip error"));
}

TEST_F(QVTIPABuilderTest, ExistingArchiveIsAddedTo) {
  ASSERT_EQ(failureOfPackaging(), 0);
  fs::rename(app(), folder_ / "Other.app");
  ASSERT_TRUE(builder()->packageSourceToDestinationPath((folder_ / "Other.app/").string(),
                                                        (folder_ / "out/App.ipa").string()));
  const fs::path root = unzipped(folder_ / "out/App.ipa");
  EXPECT_TRUE(fs::exists(root / "Payload/My App.app/Info.plist"));
  EXPECT_TRUE(fs::exists(root / "Payload/Other.app/Info.plist"));
}

TEST_F(QVTIPABuilderTest, RelativeDestinationLiesInTheWorkFolder) {
  const std::string name = "sendoff-relative-destination.ipa";
  EXPECT_TRUE(package(name));
  EXPECT_FALSE(fs::exists(name));
  EXPECT_THAT(workFolders(), IsEmpty()) << "removed with all it held";
}

TEST_F(QVTIPABuilderTest, RewritingKeepsTypesAndPermissions) {
  const Dictionary content{
      {"text", "42"},
      {"number", 42},
      {"real", 1.5},
      {"flag", false},
      {"data", Data(std::string("\x00\xff", 2))},
      {"date", foundation::Date(std::chrono::sys_days{std::chrono::year{2015} / 3 / 1})},
      {"list", Array{"a", Dictionary{{"b", true}}}}};
  const auto path = (app() / "Info.plist").string();
  auto expected = content;
  expected[kMark] = true;
  writeInfo(content);
  fs::permissions(path, fs::perms::owner_all);
  ASSERT_TRUE(builder()->markInfoPlistForDistributionAtAppPath(app().string()));
  EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(path), expected);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);

  for (const Value& rights : {Value(true), Value("anything")}) {
    auto entitlements = content;
    entitlements["beta-reports-active"] = rights;
    writeInfo(entitlements);
    ASSERT_TRUE(builder()->repairEntitlements(path));
    EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(path), content);
  }
  ASSERT_TRUE(builder()->repairEntitlements(path)) << "nothing to take out";
  EXPECT_EQ(PropertyList::dictionaryWithContentsOfFile(path), content);
}

}  // namespace
