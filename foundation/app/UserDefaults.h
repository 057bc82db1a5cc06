#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Value.h"

namespace foundation {

/// Settings of this process: the command line's `-key value` pairs, then the preference suites that
/// were added.
///
/// Pairs are looked for over the whole command line, the program name included; a value is the raw
/// text, and an element that begins with "-" is never a value. The last pair of a key wins.
class UserDefaults {
 public:
  static UserDefaults& standardUserDefaults();

  /// Replaces the argument domain.
  void setArguments(const std::vector<std::string>& arguments);

  /// Adds the preferences of another program, read from ~/Library/Preferences/<name>.plist at each
  /// look-up. Adding a suite twice changes nothing.
  void addSuiteNamed(std::string_view name);

  /// The value of `key`; absent when no domain has one.
  [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const;
  /// The same, absent too when the value is not a string.
  [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;

 private:
  mutable std::mutex mutex_;
  Dictionary arguments_;
  std::vector<std::string> suites_;
};

}  // namespace foundation
