#include <algorithm>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"
#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"

namespace {

/// Takes the first character off; a byte that is no UTF-8 counts as one.
std::string_view takeCharacter(std::string_view& text) {
  const auto codePoint = foundation::firstCodePoint(text);
  const std::string_view character = text.substr(0, codePoint ? codePoint->length : 1);
  text.remove_prefix(character.size());
  return character;
}

bool isWhitespaceOrNewline(std::string_view character) {
  return foundation::trimmed(character).empty();
}

/// The state of splitting one text.
class ArgumentSplitter {
 public:
  void take(std::string_view character) {
    if (character == "\\" && !isEscaped_) {
      isEscaped_ = true;
    } else if (!takeQuote(character)) {
      takeOrdinary(character);
    }
  }

  std::optional<std::vector<std::string>> finish() {
    if (!quote_.empty() || isEscaped_) return std::nullopt;
    finishArgument();
    return std::move(arguments_);
  }

 private:
  /// True when the character opened or closed a quote.
  bool takeQuote(std::string_view character) {
    if (isEscaped_ || (character != "\"" && character != "'")) return false;
    if (quote_.empty()) {
      quote_ = character;
      return true;
    }
    if (quote_ != character) return false;
    quote_ = {};
    return true;
  }

  void takeOrdinary(std::string_view character) {
    if (!isEscaped_ && quote_.empty() && isWhitespaceOrNewline(character)) {
      isSeparated_ = true;
    } else {
      if (isSeparated_) finishArgument();
      current_ += character;
    }
    isEscaped_ = false;
  }

  void finishArgument() {
    if (!current_.empty()) arguments_.push_back(std::move(current_));
    current_.clear();
    isSeparated_ = false;
  }

  std::vector<std::string> arguments_;
  std::string current_;
  /// The open quote; empty outside.
  std::string_view quote_;
  bool isEscaped_ = false;
  /// White space has come since the last character of an argument.
  bool isSeparated_ = false;
};

/// The platform's range exception for the first character of nothing.
char firstCharacter(const std::string& element) {
  if (element.empty()) {
    throw foundation::Exception("NSRangeException: first character of an empty argument");
  }
  return element.front();
}

}  // namespace

std::optional<std::vector<std::string>> QVTTask::parsedArgumentsFromString(
    std::string_view string) {
  ArgumentSplitter splitter;
  while (!string.empty()) splitter.take(takeCharacter(string));
  return splitter.finish();
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
      const bool isValue = firstCharacter(*element) != '-';
      values.push_back(isValue ? *element : std::string());
      if (isValue) continue;
    }
    if (std::find(validArguments.begin(), validArguments.end(), *element) != validArguments.end()) {
      expectsValue = true;
    } else if (allowingTrailingSpace) {
      const auto option =
          std::find_if(validArguments.begin(), validArguments.end(),
                       [&](const std::string& valid) { return element->starts_with(valid); });
      if (option != validArguments.end()) values.push_back(element->substr(option->size()));
    }
  }
  if (expectsValue) values.emplace_back();
  return values;
}
