#include "preparation/UnzipPattern.h"

namespace {

constexpr std::string_view kSpecial = "*?[";

/// The question as `unzip` asks it.
bool isPattern(std::string_view argument) {
  for (std::size_t i = 0; i < argument.size(); ++i) {
    if (argument[i] == '\\') {
      ++i;
    } else if (kSpecial.find(argument[i]) != kSpecial.npos) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string unzipPatternForPath(std::string_view path) {
  const std::size_t nameStart = path.rfind('/') + 1;  // 0 without a slash
  const std::string_view name = path.substr(nameStart);
  if (name.find_first_of(kSpecial) == name.npos && !isPattern(path)) return std::string(path);
  std::string pattern(path.substr(0, nameStart));
  for (const char character : name) {
    if (kSpecial.find(character) != kSpecial.npos) {
      pattern.append({'[', character, ']'});
    } else if (character == '\\') {
      pattern += "\\\\";
    } else {
      pattern += character;
    }
  }
  return pattern;
}
