#include "preparation/UnzipPaths.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include <sys/stat.h>

#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"

using archive::ZipEntry;

namespace {

constexpr std::string_view kPayload = "Payload/";
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestPath = 4095;

bool isASCII(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool isDigit(unsigned char character) { return std::isdigit(character) != 0; }

/// `unzip` drops the others.
bool isKept(unsigned char character) {
  return character >= 0x20 && character != 0x7f && character != 0xff;
}

/// `unzip` uses each component of such a name as is, or drops it.
bool isCertain(std::string_view name) {
  if (name.size() > kLongestPath || !std::ranges::all_of(name, isKept)) return false;
  const std::string_view last = name.substr(name.rfind('/') + 1);
  if (last == "." || last == "..") return false;
  const auto semicolon = last.rfind(';');
  if (semicolon != last.npos && std::ranges::all_of(last.substr(semicolon + 1), isDigit)) {
    return false;
  }
  const auto parts = foundation::split(name, '/');
  return std::ranges::all_of(parts, [](const auto& part) { return part.size() <= kLongestName; });
}

bool isCertainUTF8(std::string_view name) {
  return isCertain(name) && foundation::stringFromUTF8(foundation::bytesOf(name));
}

/// `unzip` prefers the Unicode path unless the name is declared to be UTF-8.
bool isCertain(const ZipEntry& entry) {
  if (entry.unicodeName && !isCertainUTF8(*entry.unicodeName)) return false;
  if (entry.unicodeName && !entry.isUTF8) return true;
  if (entry.isUTF8) return isCertainUTF8(entry.name);
  if (!entry.unixMode && (!isASCII(entry.name) || entry.name.find('\\') != entry.name.npos)) {
    return false;
  }
  return isCertain(entry.name);
}

/// As `unzip` writes the name in an ASCII locale.
std::string escaped(std::string_view name) {
  std::string text;
  while (const auto character = foundation::firstCodePoint(name)) {
    char escape[16];
    if (character->value < 0x80) {
      text += static_cast<char>(character->value);
    } else {
      std::snprintf(escape, sizeof escape, character->value < 0x10000 ? "#U%04x" : "#L%06x",
                    static_cast<unsigned>(character->value));
      text += escape;
    }
    name.remove_prefix(character->length);
  }
  return text;
}

constexpr std::string_view kWildcards = "*?[";

/// Decides as `unzip` does.
bool isPattern(std::string_view argument) {
  for (std::size_t i = 0; i < argument.size(); ++i) {
    if (argument[i] == '\\') {
      ++i;
    } else if (kWildcards.find(argument[i]) != kWildcards.npos) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string unzipPatternForPath(std::string_view path) {
  const std::size_t nameStart = path.rfind('/') + 1;  // 0 if there is no slash
  const std::string_view name = path.substr(nameStart);
  if (name.find_first_of(kWildcards) == name.npos && !isPattern(path)) return std::string(path);
  std::string pattern(path.substr(0, nameStart));
  for (const char character : name) {
    if (kWildcards.find(character) != kWildcards.npos) {
      pattern.append({'[', character, ']'});
    } else if (character == '\\') {
      pattern += "\\\\";
    } else {
      pattern += character;
    }
  }
  return pattern;
}

UnzipPaths::UnzipPaths(const archive::ZipDirectory& directory) {
  for (const ZipEntry& entry : directory.entries()) {
    areCertain_ = areCertain_ && isCertain(entry);
    const Kind kind = S_ISLNK(entry.unixMode.value_or(0)) ? Kind::link : Kind::other;
    add(entry.name, kind);
    if (entry.isUTF8 && !isASCII(entry.name)) add(escaped(entry.name), kind);
    if (!entry.unicodeName) continue;
    add(*entry.unicodeName, kind);
    if (!isASCII(*entry.unicodeName)) add(escaped(*entry.unicodeName), kind);
  }
}

void UnzipPaths::add(std::string_view name, Kind kind) {
  std::string path;
  for (const std::string& component : foundation::split(name, '/')) {
    if (component.empty() || component == "." || component == "..") continue;
    if (!path.empty()) path += '/';
    path += component;
  }
  if (path.starts_with(kPayload)) {
    const std::string item =
        path.substr(kPayload.size(), path.find('/', kPayload.size()) - kPayload.size());
    if (item.ends_with(".app")) apps_.insert(item);
  }
  // `unzip` makes a folder for such a name, whatever its declared type.
  if (name.ends_with('/')) kind = Kind::other;
  Kind& known = paths_.try_emplace(std::move(path), kind).first->second;
  if (kind == Kind::other) known = kind;
}

bool UnzipPaths::reach(std::string_view path) const {
  return paths_.contains(path) || reachBelow(std::string(path));
}

bool UnzipPaths::replaceLink(const std::string& path) const {
  const auto entry = paths_.find(path);
  return entry != paths_.end() && entry->second == Kind::link && !reachBelow(path);
}

bool UnzipPaths::reachBelow(const std::string& path) const {
  const std::string inside = path + "/";
  const auto first = paths_.lower_bound(inside);
  return first != paths_.end() && first->first.starts_with(inside);
}
