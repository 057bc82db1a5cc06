#include "foundation/format/PropertyList.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyListErrors.h"
#include "foundation/format/private/PropertyListReaders.h"

namespace foundation::PropertyList {

namespace {

bool isBinary(Bytes bytes) { return textOf(bytes).starts_with("bplist"); }

bool looksLikeXML(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  return std::ranges::any_of(
      std::initializer_list<std::string_view>{"<?xml", "<!DOCTYPE", "<!--", "<plist"},
      [&](std::string_view start) { return text.starts_with(start); });
}

/// What the reader of XML does on its way.
Result<Value> handingOver(Value list, const EntryTakers& takers) {
  Dictionary* const top = list.dictionary();
  for (const auto& [key, take] : takers) {
    const auto found = top ? top->find(key) : Dictionary::iterator();
    if (!top || found == top->end() || !found->second.dictionary()) continue;
    for (auto& [name, entry] : *found->second.dictionary()) take(name, std::move(entry));
    found->second = Dictionary();
  }
  return list;
}

}  // namespace

Result<Value> parse(Bytes bytes) {
  if (isBinary(bytes)) return parseBinary(bytes, Ambiguity::accepted);
  std::string storage;
  const auto text = unicodeText(bytes, storage);
  if (!text) return readError("text property list", "ill-formed UTF-16 or UTF-32");
  if (looksLikeXML(*text)) return parseXML(*text, Ambiguity::accepted);
  if (!isUTF8(*text)) return readError("text property list", "neither UTF-8 nor UTF-16");
  return parseOldStyle(*text);
}

Result<Value> parseUnambiguous(Bytes bytes, const EntryTakers& takers) {
  if (isBinary(bytes)) {
    return parseBinary(bytes, Ambiguity::refused).andThen([&](Value list) {
      return handingOver(std::move(list), takers);
    });
  }
  std::string storage;
  const auto text = unicodeText(bytes, storage);
  if (text && looksLikeXML(*text)) return parseXML(*text, Ambiguity::refused, takers);
  return readError("XML property list", "neither XML nor binary");
}

std::optional<Dictionary> dictionaryWithContentsOfFile(const std::filesystem::path& path) {
  const auto content = FileManager::contentsOfFile(path);
  // As a text it would be an empty dictionary of the old form; as a file it is a failed write.
  if (!content || content->empty()) return std::nullopt;
  auto value = parse(content->bytes());
  if (!value || !value->dictionary()) return std::nullopt;
  return std::move(*value->dictionary());
}

Result<> writeToFileAtomically(const Value& value, const std::filesystem::path& path) {
  return xml(value).andThen(
      [&](const std::string& text) { return FileManager::writeAtomically(bytesOf(text), path); });
}

Error readError(std::string_view form, std::string_view complaint) {
  return makeError(kCocoaErrorDomain, kPropertyListReadCorrupt, format("%@: %@", form, complaint));
}

Error readErrorAt(std::string_view form, std::string_view text, std::size_t place,
                  std::string_view complaint) {
  const auto line = 1 + std::ranges::count(text.substr(0, place), '\n');
  return readError(format("%@, line %ld", form, line), complaint);
}

std::optional<Date> dateAt(double secondsSince1970) {
  constexpr double kYear1 = -62135596800;
  constexpr double kYear10000 = 253402300800;
  if (!(secondsSince1970 >= kYear1 && secondsSince1970 < kYear10000)) return std::nullopt;
  return Date(std::chrono::microseconds(std::llround(secondsSince1970 * 1e6)));
}

bool set(Dictionary& dictionary, std::string key, Value value) {
  const std::size_t before = dictionary.size();
  dictionary.insert_or_assign(dictionary.end(), std::move(key), std::move(value));
  return dictionary.size() != before;
}

}  // namespace foundation::PropertyList
