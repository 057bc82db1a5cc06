#pragma once

#include <filesystem>
#include <string>

#include "foundation/base/Value.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

/// A home of the test's own with an archives location in its default place.
class ArchivesHome {
 public:
  ArchivesHome() : home_("HOME", folder_.path().c_str()) {}

  [[nodiscard]] std::filesystem::path location() const {
    return folder_ / "Library/Developer/Xcode/Archives";
  }
  /// Sets Xcode's own preference.
  void setCustomLocation(const std::string& path) const;
  /// Writes a property list below the home folder.
  void writeInfo(const std::filesystem::path& name, const foundation::Dictionary& info) const;
  /// A whole archive that holds one app, made elsewhere and moved into the day's folder, which
  /// must be there; returns its path.
  std::filesystem::path addArchive(const std::string& day, const std::string& name,
                                   const std::string& identifier, const std::string& created) const;
  [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
  ScopedEnvironment home_;
};

/// Midnight of a day in 2015, "03-01".
foundation::Date dayOf2015(const std::string& day);

}  // namespace test
