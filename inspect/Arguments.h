#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"

namespace inspect {

/// An option of a sub-command, with its dashes.
struct OptionRule {
  std::string_view name;
  bool takesValue = false;
};

/// What a sub-command takes.
struct ArgumentRules {
  std::size_t fewestOperands = 0;
  std::size_t mostOperands = 0;
  std::vector<OptionRule> options;
};

/// The words behind a sub-command's name, sorted out.
class Arguments {
 public:
  /// Options may stand anywhere, values as the next word or behind "="; "--" ends the options.
  /// `--help` is known everywhere; nothing behind it is looked at, and nothing needs to be there.
  /// Fails with a usage error that names the word.
  static foundation::Result<Arguments> parse(const std::vector<std::string>& words,
                                             const ArgumentRules& rules);

  [[nodiscard]] const std::vector<std::string>& operands() const { return operands_; }
  [[nodiscard]] bool has(std::string_view option) const { return options_.contains(option); }
  /// The option's last value.
  [[nodiscard]] std::optional<std::string> value(std::string_view option) const;
  /// All its values in order; empty when it was not given.
  [[nodiscard]] std::vector<std::string> values(std::string_view option) const;

 private:
  std::vector<std::string> operands_;
  std::map<std::string, std::vector<std::string>, std::less<>> options_;
};

/// Wrong use of the command line; the program ends with status 2 for it.
foundation::Error usageError(std::string text);
bool isUsageError(const foundation::Error& error);

/// Something that could not be read; the program ends with status 1 for it.
foundation::Error inputError(std::string text);

/// "cannot read `path`: " and the system's reason, or `otherwise` when the system would read it.
foundation::Error unreadable(const std::string& path, std::string_view otherwise);

}  // namespace inspect
