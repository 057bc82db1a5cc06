#include <algorithm>
#include <utility>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"
#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"

namespace {

/// Removes and returns the first character; an ill-formed byte counts as one.
std::string_view takeCharacter(std::string_view& text) {
  const auto codePoint = foundation::firstCodePoint(text);
  const std::string_view character = text.substr(0, codePoint ? codePoint->length : 1);
  text.remove_prefix(character.size());
  return character;
}

}  // namespace

std::optional<std::vector<std::string>> QVTTask::parsedArgumentsFromString(
    std::string_view string) {
  std::vector<std::string> arguments;
  std::string current;
  std::string_view openQuote;
  bool isEscaped = false;
  const auto finishArgument = [&] {
    if (!current.empty()) arguments.push_back(std::exchange(current, {}));
  };
  while (!string.empty()) {
    const std::string_view character = takeCharacter(string);
    const bool isQuote = character == "\"" || character == "'";
    if (character == "\\" && !isEscaped) {
      isEscaped = true;
      continue;
    }
    if (isQuote && !isEscaped && (openQuote.empty() || openQuote == character)) {
      openQuote = openQuote.empty() ? character : std::string_view();
    } else if (!isEscaped && openQuote.empty() && foundation::trimmed(character).empty()) {
      finishArgument();
    } else {
      current += character;
    }
    isEscaped = false;
  }
  if (!openQuote.empty() || isEscaped) return std::nullopt;
  finishArgument();
  return arguments;
}

std::optional<std::vector<std::string>>
QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
    const foundation::Array& provided, const std::vector<std::string>& validArguments,
    bool allowingTrailingSpace) {
  std::vector<std::string> values;
  bool expectsValue = false;
  for (const foundation::Value& item : provided) {
    const std::string* const element = item.string();
    if (!element) return std::nullopt;
    if (std::exchange(expectsValue, false)) {
      if (element->empty()) {
        throw foundation::Exception("NSRangeException: first character of an empty argument");
      }
      const bool isValue = element->front() != '-';
      values.push_back(isValue ? *element : std::string());
      if (isValue) continue;
    }
    if (std::ranges::find(validArguments, *element) != validArguments.end()) {
      expectsValue = true;
    } else if (allowingTrailingSpace) {
      const auto option = std::ranges::find_if(
          validArguments, [&](const std::string& valid) { return element->starts_with(valid); });
      if (option != validArguments.end()) values.push_back(element->substr(option->size()));
    }
  }
  if (expectsValue) values.emplace_back();
  return values;
}
