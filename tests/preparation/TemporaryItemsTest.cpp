// Claims on what is made in the temporary folder, held, released and left behind.
#include "foundation/file/LockFile.h"
#include "preparation/TemporaryItems.h"
#include "tests/support/Test.h"

namespace {

using std::chrono::hours;

/// Makes a file or, for a path that ends in "/", a folder as an .ipa leaves it.
void make(const fs::path& path) {
  writeFile(path.has_filename() ? path : path / "Payload/Example.app/Info.plist", "content");
}

/// As if the item had been there for so long.
void age(const fs::path& path, hours time) {
  struct timespec times[2] = {};
  times[0].tv_sec = times[1].tv_sec = ::time(nullptr) - std::chrono::seconds(time).count();
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

class TemporaryItemsTest : public testing::Test {
 protected:
  void SetUp() override { fs::create_directory(temporary_); }
  void TearDown() override { TemporaryItems::releaseAll(); }

  /// A process claims and makes these items and is then killed. All is as old as that afterwards.
  void leaveBehind(const std::vector<std::string>& items) const {
    const auto end = inChildProcess([&]() -> std::string {
      for (const std::string& item : items) {
        const fs::path path = temporary_ / item;
        if (item.find('/') != item.size() - 1) {
          TemporaryItems::claimNew(path);
        } else if (!TemporaryItems::claimFolder(path)) {
          return "no claim";
        }
        make(path);
      }
      return "killed";
    });
    EXPECT_EQ(end, "killed");
    ageAll(kTwoDays);
  }
  void ageAll(hours time) const {
    for (const auto& path : pathsBelow(temporary_)) age(temporary_ / path, time);
  }
  fs::path firstClaim() const { return fs::directory_iterator(claims_)->path(); }
  /// Without the claims.
  std::vector<std::string> itemsLeft() const {
    auto items = pathsBelow(temporary_);
    std::erase_if(items, [](const auto& path) { return path.starts_with(kClaims); });
    return items;
  }
  void expectNothingGoes() const {
    const auto before = itemsLeft();
    TemporaryItems::removeLeftovers();
    EXPECT_EQ(itemsLeft(), before);
  }

  static constexpr hours kTwoDays{48};
  static constexpr const char* kClaims = "com.quorvantile.claims-";
  const TemporaryFolder folder_;
  const fs::path temporary_ = folder_ / "temporary";
  const fs::path example_ = temporary_ / "Example";
  const fs::path shared_ = temporary_ / "com.quorvantile.mac";
  const fs::path claims_ = temporary_ / (kClaims + std::to_string(::geteuid()));
  const ScopedEnvironment variable_{"TMPDIR", temporary_.c_str()};
};

TEST_F(TemporaryItemsTest, WhatAKilledRunLeftGoesAfterADay) {
  leaveBehind({"Example/", "com.quorvantile.mac/apps/one/",
               "com.quorvantile.mac/distributions/two.ipa", "com.quorvantile.ipas/three/"});
  ageAll(hours(23));
  expectNothingGoes();
  ageAll(hours(25));
  TemporaryItems::removeLeftovers();
  EXPECT_THAT(pathsBelow(temporary_),
              ElementsAre("com.quorvantile.ipas", "com.quorvantile.mac", "com.quorvantile.mac/apps",
                          "com.quorvantile.mac/distributions"));
}

TEST_F(TemporaryItemsTest, NothingElseGoes) {
  const fs::path canary = folder_ / "canary";
  const auto replaceByLink = [&](const fs::path& path) {
    fs::rename(path, canary);
    fs::create_symlink(canary, path);
  };
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"an item that was changed today", [&] { age(example_, hours(1)); }},
      {"a claim of today", [&] { age(firstClaim(), hours(1)); }},
      {"a link where the item was", [&] { replaceByLink(example_), age(example_, kTwoDays); }},
      {"a claim that is a link", [&] { replaceByLink(firstClaim()); }},
      {"a claims folder that is a link", [&] { replaceByLink(claims_); }},
      {"a claim under another item's name", [&] { fs::rename(firstClaim(), claims_ / "other"); }},
      {"a shared folder that is a link",
       [&] {
         fs::remove_all(temporary_);
         leaveBehind({"com.quorvantile.mac/apps/one/"});
         replaceByLink(shared_);
       }},
  };
  for (const auto& [name, change] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(temporary_);
    fs::remove_all(canary);
    make(temporary_ / "Unclaimed/");
    leaveBehind({"Example/"});
    change();
    const auto before = pathsBelow(folder_.path());
    TemporaryItems::removeLeftovers();
    EXPECT_EQ(pathsBelow(folder_.path()), before);
  }
}

TEST_F(TemporaryItemsTest, ALivingOwnerKeepsItsItems) {
  ASSERT_TRUE(TemporaryItems::claimFolder(example_ / ""));
  ASSERT_TRUE(TemporaryItems::claimFolder(example_ / "")) << "it does not wait for itself";
  make(example_ / "");
  ageAll(kTwoDays);
  const auto before = itemsLeft();
  inChildProcess([] { return TemporaryItems::removeLeftovers(), std::string(); });
  EXPECT_EQ(itemsLeft(), before);
}

TEST_F(TemporaryItemsTest, AnotherUsersItemsStay) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make files of other users";
  leaveBehind({"Example/"});
  ASSERT_EQ(::chown(example_.c_str(), kUnprivilegedUser, 0), 0);
  expectNothingGoes();
  // Nor is a claim believed that is another user's.
  ASSERT_EQ(::chown(example_.c_str(), 0, 0), 0);
  ASSERT_EQ(::chown(claims_.c_str(), kUnprivilegedUser, 0), 0);
  expectNothingGoes();
  ASSERT_FALSE(TemporaryItems::claimFolder(temporary_ / "Other/"));
}

TEST_F(TemporaryItemsTest, AFolderThatWasThereBeforeIsNoLeftover) {
  make(example_ / "");
  leaveBehind({"Example/"});
  expectNothingGoes();
  EXPECT_FALSE(fs::exists(claims_));
}

TEST_F(TemporaryItemsTest, WhatReplacesAnAppOfAnEarlierRunIsThisRunsOwn) {
  make(example_ / "");
  make(example_ / "Payload/Other.app/Info.plist");
  ASSERT_TRUE(TemporaryItems::claimFolder(example_ / ""));
  TemporaryItems::ownFromPayload(example_ / "", "Example.app");
  TemporaryItems::ownFromPayload(temporary_ / "Unclaimed/", "Example.app");
  TemporaryItems::removeOwn(example_ / "");
  const auto others = {"Example", "Example/Payload", "Example/Payload/Other.app",
                       "Example/Payload/Other.app/Info.plist"};
  EXPECT_THAT(itemsLeft(), ElementsAreArray(others));
  make(example_ / "");
  TemporaryItems::removeAll();
  EXPECT_THAT(itemsLeft(), ElementsAreArray(others));
}

// An .ipa may be named like the folder that all runs share.
TEST_F(TemporaryItemsTest, TheSharedFoldersAreNeverRemoved) {
  leaveBehind({"com.quorvantile.mac/"});
  expectNothingGoes();
  const auto before = itemsLeft();
  fs::remove_all(shared_);
  ASSERT_TRUE(TemporaryItems::claimFolder(shared_ / ""));
  make(shared_ / "");
  TemporaryItems::removeAll();
  EXPECT_EQ(itemsLeft(), before);
}

// What `zip` had begun when it was killed does not say whose it is.
TEST_F(TemporaryItemsTest, HalfAnArchiveGoesUnlessAnotherRunMayBeAtIt) {
  const fs::path folder = shared_ / "distributions";
  make(folder / "ziABC123");
  age(folder / "ziABC123", hours(1));
  make(folder / "zipper78.txt");
  TemporaryItems::claimNew(folder / "one.ipa");
  auto other = foundation::LockFile::take(claims_, "another run's");
  ASSERT_TRUE(other && *other);
  make(folder / "zidef456");
  TemporaryItems::removeAll();
  EXPECT_TRUE(fs::exists(folder / "zidef456"));

  TemporaryItems::claimNew(folder / "two.ipa");
  other->remove();
  make(folder / "zighi789");
  TemporaryItems::removeAll();
  EXPECT_FALSE(fs::exists(folder / "zighi789"));
  EXPECT_TRUE(fs::exists(folder / "ziABC123")) << "older than the run";
  EXPECT_TRUE(fs::exists(folder / "zipper78.txt"));
}

}  // namespace
