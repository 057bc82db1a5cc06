#pragma once

#include "tests/support/Test.h"

namespace test {

/// Midnight of a day in 2015, "03-01".
inline Date dayOf2015(const std::string& day) {
  const auto number = [&](std::size_t at) {
    return static_cast<unsigned>(std::stoi(day.substr(at)));
  };
  return std::chrono::sys_days(2015y / std::chrono::month(number(0)) / std::chrono::day(number(3)));
}

/// A home of the test's own with an archives location in its default place.
class ArchivesHome {
 public:
  [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }
  [[nodiscard]] fs::path location() const { return folder_ / "Library/Developer/Xcode/Archives"; }
  /// Writes a property list below the home folder.
  void writeInfo(const fs::path& name, const Dictionary& info) const {
    writePlist(folder_ / name, info);
  }
  /// A whole archive that holds one app, made elsewhere and moved into the day's folder, which
  /// must be there; returns its path. An empty identifier is left out.
  fs::path addArchive(const std::string& day, const std::string& name,
                      const std::string& identifier, const std::string& created) const {
    const fs::path made = "made/" + name + ".xcarchive";
    writeInfo(made / "Info.plist",
              {{"CreationDate", dayOf2015(created)},
               {"ApplicationProperties", Dictionary{{"ApplicationPath", "Applications/App.app"}}}});
    Dictionary app{{"CFBundleVersion", "7"}, {"CFBundleShortVersionString", "1.0"}};
    if (!identifier.empty()) app["CFBundleIdentifier"] = identifier;
    writeInfo(made / "Products/Applications/App.app/Info.plist", app);
    const fs::path target = location() / day / made.filename();
    fs::rename(folder_ / made, target);
    return target;
  }

 private:
  TemporaryFolder folder_;
  ScopedEnvironment home_{"HOME", folder_.path().c_str()};
};

}  // namespace test
