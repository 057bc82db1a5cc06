#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"

namespace inspect {

/// An option of a sub-command; the name includes its dashes.
struct OptionRule {
  std::string_view name;
  bool takesValue = false;
};

/// What a sub-command accepts.
struct ArgumentRules {
  std::size_t fewestOperands = 0;
  std::size_t mostOperands = 0;
  std::vector<OptionRule> options;
};

/// The parsed arguments of a sub-command.
class Arguments {
 public:
  /// Options may be anywhere, their values the next word or after "="; "--" ends the options.
  /// `--help` is always accepted and ends the parsing. Fails with a usage error that names the
  /// word.
  static foundation::Result<Arguments> parse(const std::vector<std::string>& words,
                                             const ArgumentRules& rules);

  [[nodiscard]] const std::vector<std::string>& operands() const { return operands_; }
  [[nodiscard]] bool has(std::string_view option) const { return options_.contains(option); }
  /// The last value; absent when the option was not given.
  [[nodiscard]] std::optional<std::string> value(std::string_view option) const;
  /// All values in order.
  [[nodiscard]] std::vector<std::string> values(std::string_view option) const;

 private:
  std::vector<std::string> operands_;
  std::map<std::string, std::vector<std::string>, std::less<>> options_;
};

/// Wrong use of the command line; the exit status is 2.
foundation::Error usageError(std::string text);
bool isUsageError(const foundation::Error& error);

/// Unreadable input; the exit status is 1.
foundation::Error inputError(std::string text);

/// "cannot read `path`: " and the system's error text, or `otherwise` when the file can be opened.
foundation::Error unreadable(const std::string& path, std::string_view otherwise);

}  // namespace inspect
