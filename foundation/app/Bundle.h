#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/URL.h"
#include "foundation/base/Value.h"

namespace foundation {

/// A folder opened as a bundle. The Info dictionary is read once, at opening. What links lead to
/// outside the folder is no part of the bundle: it is as good as missing.
class Bundle {
 public:
  /// Any existing folder opens; nothing else does (empty pointer). An `Exception` when the machine,
  /// not the file, keeps the Info dictionary from being read: too many open files, no memory, an
  /// input that fails.
  static std::shared_ptr<Bundle> bundleWithPath(std::string_view path);

  /// The running program. Its Info dictionary is the property list that its build put into the
  /// executable's "info_plist" section; empty when there is none.
  static const Bundle& mainBundle();

  [[nodiscard]] const std::string& bundlePath() const { return path_; }
  /// "Info.plist" at the top or "Contents/Info.plist", unlocalised; empty without one.
  [[nodiscard]] const Dictionary& infoDictionary() const { return info_; }
  /// The value under `key` in the Info dictionary, or null.
  [[nodiscard]] const Value* objectForInfoDictionaryKey(std::string_view key) const;
  /// "CFBundleIdentifier", absent when it is missing or no string.
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const;
  /// The file that CFBundleExecutable names inside the bundle, or, without that key, the one named
  /// like the folder less its extension; absent when that file does not exist.
  [[nodiscard]] std::optional<std::string> executablePath() const;
  [[nodiscard]] std::optional<URL> executableURL() const;

 private:
  Bundle() = default;
  std::string path_;
  Dictionary info_;
};

}  // namespace foundation
