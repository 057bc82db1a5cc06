#include "tests/xcode/ArchiveFixture.h"

#include <chrono>

#include <gtest/gtest.h>

#include "foundation/format/PropertyList.h"

namespace test {

namespace fs = std::filesystem;
using foundation::Dictionary;

foundation::Date dayOf2015(const std::string& day) {
  const auto month = static_cast<unsigned>(std::stoi(day.substr(0, 2)));
  const auto dayOfMonth = static_cast<unsigned>(std::stoi(day.substr(3)));
  return std::chrono::sys_days(std::chrono::year(2015) / std::chrono::month(month) /
                               std::chrono::day(dayOfMonth));
}

void ArchivesHome::writeInfo(const fs::path& name, const Dictionary& info) const {
  fs::create_directories((folder_ / name).parent_path());
  ASSERT_TRUE(foundation::PropertyList::writeToFileAtomically(info, folder_ / name));
}

void ArchivesHome::setCustomLocation(const std::string& path) const {
  writeInfo("Library/Preferences/com.apple.dt.Xcode.plist",
            {{"IDECustomDistributionArchivesLocation", path}});
}

fs::path ArchivesHome::addArchive(const std::string& day, const std::string& name,
                                  const std::string& identifier, const std::string& created) const {
  const fs::path made = "made/" + name + ".xcarchive";
  writeInfo(made / "Info.plist",
            {{"CreationDate", dayOf2015(created)},
             {"ApplicationProperties", Dictionary{{"ApplicationPath", "Applications/App.app"}}}});
  Dictionary app{{"CFBundleVersion", "7"}, {"CFBundleShortVersionString", "1.0"}};
  if (!identifier.empty()) app["CFBundleIdentifier"] = identifier;
  writeInfo(made / "Products/Applications/App.app/Info.plist", app);
  const fs::path target = location() / day / (name + ".xcarchive");
  fs::rename(folder_ / made, target);
  return target;
}

}  // namespace test
