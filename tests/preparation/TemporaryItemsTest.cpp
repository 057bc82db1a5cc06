// Claims on what is made in the temporary folder, held, released and left behind.
#include <algorithm>
#include <chrono>
#include <fstream>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/file/LockFile.h"
#include "preparation/TemporaryItems.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::IsSupersetOf;

constexpr std::chrono::hours kTwoDays{48};

class TemporaryItemsTest : public testing::Test {
 protected:
  fs::path temporary() const { return folder_ / "temporary"; }
  fs::path claims() const {
    return temporary() / ("com.quorvantile.claims-" + std::to_string(::geteuid()));
  }
  void SetUp() override {
    fs::create_directory(temporary());
    variable_.emplace("TMPDIR", temporary().c_str());
  }
  void TearDown() override { TemporaryItems::releaseAll(); }

  /// A process that claims and makes these items and is then killed. Items end in "/" for folders.
  void leaveBehind(const std::vector<std::string>& items) const {
    EXPECT_EQ(test::inChildProcess([&] {
                for (const std::string& item : items) {
                  const fs::path path = temporary() / item;
                  if (item.find('/') == item.size() - 1) {
                    if (!TemporaryItems::claimFolder(path)) return std::string("no claim");
                  } else {
                    TemporaryItems::claimNew(path);
                  }
                  make(path);
                }
                return std::string("killed");
              }),
              "killed");
  }
  static void make(const fs::path& path) {
    if (path.has_filename()) {
      fs::create_directories(path.parent_path());
      std::ofstream(path) << "content";
    } else {
      fs::create_directories(path / "Payload/Example.app");
      std::ofstream(path / "Payload/Example.app/Info.plist") << "content";
    }
  }
  /// As if all that is in the temporary folder had been there for so long.
  void age(std::chrono::hours hours = kTwoDays) const {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::recursive_directory_iterator(temporary())) {
      paths.push_back(entry.path());
    }
    for (const auto& path : paths) ageItem(path, hours);
  }
  static void ageItem(const fs::path& path, std::chrono::hours hours) {
    struct timespec times[2] = {};
    times[0].tv_sec = times[1].tv_sec =
        ::time(nullptr) - std::chrono::duration_cast<std::chrono::seconds>(hours).count();
    ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
  std::vector<std::string> namesLeft() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(temporary())) {
      if (!entry.path().string().starts_with(claims().string())) {
        names.push_back(entry.path().lexically_relative(temporary()));
      }
    }
    std::ranges::sort(names);
    return names;
  }

  test::TemporaryFolder folder_;
  std::optional<test::ScopedEnvironment> variable_;
};

const std::vector<std::string> kEveryKind = {"Example/", "com.quorvantile.mac/apps/one/",
                                             "com.quorvantile.mac/distributions/two.ipa",
                                             "com.quorvantile.ipas/three/"};

TEST_F(TemporaryItemsTest, WhatAKilledRunLeftGoesAfterADay) {
  leaveBehind(kEveryKind);
  const auto before = namesLeft();
  TemporaryItems::removeLeftovers();
  EXPECT_EQ(namesLeft(), before) << "today's";
  age(std::chrono::hours(23));
  TemporaryItems::removeLeftovers();
  EXPECT_EQ(namesLeft(), before) << "younger than a day";
  age(std::chrono::hours(25));
  TemporaryItems::removeLeftovers();
  EXPECT_THAT(namesLeft(), testing::ElementsAre("com.quorvantile.ipas", "com.quorvantile.mac",
                                                "com.quorvantile.mac/apps",
                                                "com.quorvantile.mac/distributions"));
  EXPECT_FALSE(fs::exists(claims()));
}

TEST_F(TemporaryItemsTest, NothingElseGoes) {
  const fs::path canary = folder_ / "canary";
  make(canary / "");
  const auto example = [this] { return temporary() / "Example"; };
  const auto shared = [this] { return temporary() / "com.quorvantile.mac"; };
  struct Case {
    const char* name;
    std::function<void()> change;
  };
  const std::vector<Case> cases = {
      {"an item that was changed today", [&] { ageItem(example(), std::chrono::hours(1)); }},
      {"a claim of today",
       [&] {
         for (const auto& claim : fs::directory_iterator(claims())) {
           ageItem(claim.path(), std::chrono::hours(1));
         }
       }},
      {"a link where the item was",
       [&] {
         fs::remove_all(example());
         fs::create_directory_symlink(canary, example());
         ageItem(example(), kTwoDays);
       }},
      {"a claim that is a link",
       [&] {
         for (const auto& claim : fs::directory_iterator(claims())) {
           fs::rename(claim.path(), folder_ / "claim");
           fs::create_symlink(folder_ / "claim", claim.path());
         }
       }},
      {"a claims folder that is a link",
       [&] {
         fs::rename(claims(), folder_ / "claims");
         fs::create_directory_symlink(folder_ / "claims", claims());
       }},
      {"a claim under another item's name",
       [&] { fs::rename(fs::directory_iterator(claims())->path(), claims() / "other"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(temporary());
    fs::remove_all(folder_ / "claims");
    leaveBehind({"Example/"});
    make(temporary() / "Unclaimed/");
    age();
    c.change();
    const auto before = namesLeft();
    TemporaryItems::removeLeftovers();
    EXPECT_EQ(namesLeft(), before);
    EXPECT_TRUE(fs::exists(canary / "Payload/Example.app/Info.plist"));
  }
  // A shared folder on the way to the item that leads elsewhere.
  fs::remove_all(temporary());
  leaveBehind({"com.quorvantile.mac/apps/one/"});
  age();
  fs::rename(shared(), folder_ / "elsewhere");
  fs::create_directory_symlink(folder_ / "elsewhere", shared());
  TemporaryItems::removeLeftovers();
  EXPECT_TRUE(fs::exists(folder_ / "elsewhere/apps/one/Payload/Example.app/Info.plist"));
}

TEST_F(TemporaryItemsTest, ALivingOwnerKeepsItsItems) {
  ASSERT_TRUE(TemporaryItems::claimFolder(temporary() / "Example/"));
  make(temporary() / "Example/");
  age();
  const auto before = namesLeft();
  EXPECT_EQ(test::inChildProcess([] {
              TemporaryItems::removeLeftovers();
              return std::string("done");
            }),
            "done");
  EXPECT_EQ(namesLeft(), before);
}

TEST_F(TemporaryItemsTest, AnotherUsersItemsStay) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make files of other users";
  leaveBehind({"Example/"});
  age();
  ASSERT_EQ(::chown((temporary() / "Example").c_str(), test::kUnprivilegedUser, 0), 0);
  TemporaryItems::removeLeftovers();
  EXPECT_TRUE(fs::exists(temporary() / "Example/Payload"));
  // Nor is a claim believed that is another user's.
  ASSERT_EQ(::chown((temporary() / "Example").c_str(), 0, 0), 0);
  ASSERT_EQ(::chown(claims().c_str(), test::kUnprivilegedUser, 0), 0);
  TemporaryItems::removeLeftovers();
  EXPECT_TRUE(fs::exists(temporary() / "Example/Payload"));
  ASSERT_FALSE(TemporaryItems::claimFolder(temporary() / "Other/"));
}

TEST_F(TemporaryItemsTest, AFolderThatWasThereBeforeIsNoLeftover) {
  make(temporary() / "Example/");
  leaveBehind({"Example/"});
  age();
  const auto before = namesLeft();
  TemporaryItems::removeLeftovers();
  EXPECT_EQ(namesLeft(), before);
  EXPECT_FALSE(fs::exists(claims()));
}

TEST_F(TemporaryItemsTest, WhatReplacesAnAppOfAnEarlierRunIsThisRunsOwn) {
  make(temporary() / "Example/");
  make(temporary() / "Example/Payload/Other.app/Info.plist");
  ASSERT_TRUE(TemporaryItems::claimFolder(temporary() / "Example/"));
  TemporaryItems::ownFromPayload(temporary() / "Example/", "Example.app");
  TemporaryItems::ownFromPayload(temporary() / "Unclaimed/", "Example.app");
  TemporaryItems::removeOwn(temporary() / "Example/");
  EXPECT_THAT(namesLeft(),
              testing::ElementsAre("Example", "Example/Payload", "Example/Payload/Other.app",
                                   "Example/Payload/Other.app/Info.plist"));
  make(temporary() / "Example/");
  TemporaryItems::removeAll();
  EXPECT_FALSE(fs::exists(temporary() / "Example/Payload/Example.app"));
}

// An .ipa may be named like the folder that all runs share.
TEST_F(TemporaryItemsTest, TheSharedFoldersAreNeverRemoved) {
  leaveBehind({"com.quorvantile.mac/"});
  age();
  const auto before = namesLeft();
  TemporaryItems::removeLeftovers();
  EXPECT_EQ(namesLeft(), before);
  fs::remove_all(temporary() / "com.quorvantile.mac");
  ASSERT_TRUE(TemporaryItems::claimFolder(temporary() / "com.quorvantile.mac/"));
  make(temporary() / "com.quorvantile.mac/");
  TemporaryItems::removeAll();
  EXPECT_EQ(namesLeft(), before);
}

// What `zip` had begun when it was killed does not say whose it is.
TEST_F(TemporaryItemsTest, HalfAnArchiveGoesUnlessAnotherRunMayBeAtIt) {
  const fs::path folder = temporary() / "com.quorvantile.mac/distributions";
  make(folder / "ziABC123");
  ageItem(folder / "ziABC123", std::chrono::hours(1));
  make(folder / "zipper78.txt");
  TemporaryItems::claimNew(folder / "one.ipa");
  auto other = foundation::LockFile::take(claims(), "another run's");
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

TEST_F(TemporaryItemsTest, WhereNoFolderCanBeMadeTheClaimFails) {
  const test::ScopedEnvironment variable("TMPDIR", "/proc");
  const auto claimed = TemporaryItems::claimFolder("/proc/Example/");
  ASSERT_FALSE(claimed);
  EXPECT_THAT(claimed.error().localizedDescription(),
              testing::StartsWith("cannot lock /proc/com.quorvantile.claims-"));
}

TEST_F(TemporaryItemsTest, ReleasingLeavesTheItemsAndRemovingTakesThem) {
  ASSERT_TRUE(TemporaryItems::claimFolder(temporary() / "Example/"));
  ASSERT_TRUE(TemporaryItems::claimFolder(temporary() / "Example/")) << "a second time";
  make(temporary() / "Example/");
  TemporaryItems::releaseAll();
  EXPECT_THAT(namesLeft(), IsSupersetOf({"Example", "Example/Payload/Example.app"}));
  EXPECT_FALSE(fs::exists(claims()));

  for (const std::string& item : kEveryKind) {
    if (item == "Example/") continue;
    TemporaryItems::claimNew(temporary() / item);
    make(temporary() / item);
  }
  TemporaryItems::removeAll();
  EXPECT_THAT(namesLeft(), IsSupersetOf({"Example", "Example/Payload/Example.app"}));
  EXPECT_THAT(namesLeft(), testing::Not(testing::Contains("com.quorvantile.mac/apps/one")));
  EXPECT_TRUE(fs::is_empty(temporary() / "com.quorvantile.mac/distributions"));
  EXPECT_TRUE(fs::is_empty(temporary() / "com.quorvantile.ipas"));
  EXPECT_FALSE(fs::exists(claims()));
}

}  // namespace
