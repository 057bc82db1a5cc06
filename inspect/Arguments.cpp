#include "inspect/Arguments.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>

#include "foundation/base/Handle.h"

namespace inspect {

namespace {

constexpr std::string_view kUsageDomain = "sendoff-inspect.usage";
constexpr std::string_view kInputDomain = "sendoff-inspect.input";
constexpr std::string_view kHelp = "--help";

}  // namespace

foundation::Error usageError(std::string text) {
  return foundation::makeError(kUsageDomain, 2, std::move(text));
}

bool isUsageError(const foundation::Error& error) { return error.domain == kUsageDomain; }

foundation::Error inputError(std::string text) {
  return foundation::makeError(kInputDomain, 1, std::move(text));
}

foundation::Error unreadable(const std::string& path, std::string_view otherwise) {
  const foundation::FileDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  const std::string reason = file ? std::string(otherwise) : std::system_category().message(errno);
  return inputError("cannot read " + (path.empty() ? "an empty path" : path) + ": " + reason);
}

foundation::Result<Arguments> Arguments::parse(const std::vector<std::string>& words,
                                               const ArgumentRules& rules) {
  Arguments result;
  bool optionsEnded = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (!optionsEnded && word == "--") {
      optionsEnded = true;
      continue;
    }
    if (optionsEnded || word.size() < 2 || word[0] != '-') {
      result.operands_.emplace_back(word);
      continue;
    }
    const std::size_t equals = word.starts_with("--") ? word.find('=') : std::string_view::npos;
    const std::string_view name = word.substr(0, equals);
    if (word == kHelp) {
      result.options_[std::string(kHelp)];
      return result;
    }
    const auto rule = std::ranges::find(rules.options, name, &OptionRule::name);
    if (rule == rules.options.end()) {
      return usageError("unknown option " + std::string(name) +
                        " (write -- before an argument that begins with a dash)");
    }
    auto& values = result.options_[std::string(name)];
    if (!rule->takesValue) {
      if (equals != std::string_view::npos) {
        return usageError("option " + std::string(name) + " takes no value");
      }
    } else if (equals != std::string_view::npos) {
      values.emplace_back(word.substr(equals + 1));
    } else if (i + 1 < words.size()) {
      values.push_back(words[++i]);
    } else {
      return usageError("option " + std::string(name) + " needs a value");
    }
  }
  if (result.operands_.size() < rules.fewestOperands) return usageError("an argument is missing");
  if (result.operands_.size() > rules.mostOperands) {
    return usageError("unexpected argument " + result.operands_[rules.mostOperands]);
  }
  return result;
}

std::optional<std::string> Arguments::value(std::string_view option) const {
  const auto all = values(option);
  return all.empty() ? std::nullopt : std::optional(all.back());
}

std::vector<std::string> Arguments::values(std::string_view option) const {
  const auto found = options_.find(option);
  return found == options_.end() ? std::vector<std::string>{} : found->second;
}

}  // namespace inspect
