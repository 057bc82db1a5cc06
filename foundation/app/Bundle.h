#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

namespace foundation {

/// A folder opened as a bundle. The Info dictionary is read once, on opening. A file behind a link
/// out of the folder counts as missing.
class Bundle {
 public:
  /// Opens any folder; empty for anything else. Throws `Exception` when the Info dictionary cannot
  /// be read for a reason other than the file: too many open files, no memory, an I/O error.
  static std::shared_ptr<Bundle> bundleWithPath(std::string_view path);

  /// The running program. Its Info dictionary comes from the executable's "info_plist" section and
  /// is empty if there is none.
  static const Bundle& mainBundle();

  [[nodiscard]] const std::string& bundlePath() const { return path_; }
  /// From "Info.plist" or "Contents/Info.plist", unlocalised; empty if neither can be read.
  [[nodiscard]] const Dictionary& infoDictionary() const { return info_; }
  /// Null if there is none.
  [[nodiscard]] const Value* objectForInfoDictionaryKey(std::string_view key) const;
  /// "CFBundleIdentifier" if it is a string.
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const;
  /// The file named by CFBundleExecutable or, without that key, named like the folder without its
  /// extension; absent if it does not exist.
  [[nodiscard]] std::optional<std::string> executablePath() const;

 private:
  Bundle() = default;
  std::string path_;
  Dictionary info_;
};

}  // namespace foundation
