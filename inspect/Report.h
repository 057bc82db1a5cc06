#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "inspect/TextOutput.h"

namespace inspect {

/// What a sub-command reports.
struct Report {
  /// What `--json` prints. Keys are the names of the properties; absent values are null.
  foundation::Value document;
  /// Shows the document as text.
  std::function<void(const foundation::Value& document, TextOutput& text)> showText;
  /// Exit status of the program.
  int status = 0;
};

template <class T>
foundation::Value orNull(const std::optional<T>& value) {
  return value ? foundation::Value(*value) : foundation::Value();
}

foundation::Value arrayOf(const std::vector<std::string>& texts);

/// What `describe` makes of each element.
template <class Range, class Describe>
foundation::Array listOf(const Range& range, Describe describe) {
  foundation::Array list;
  for (const auto& element : range) list.emplace_back(describe(element));
  return list;
}

/// The value under `key` as text; absent when it is null or missing. Numbers and booleans are as in
/// JSON, dates as ISO 8601 in UTC.
std::optional<std::string> textAt(const foundation::Value& document, std::string_view key);
/// The array under `key`; empty when there is none.
const foundation::Array& entriesAt(const foundation::Value& document, std::string_view key);

using Keys = std::vector<std::string_view>;
/// One field per key, labelled with the key.
TextOutput::Fields fieldsOf(const foundation::Value& document, const Keys& keys);
/// One cell per key, "-" for an absent value; one row per entry.
TextOutput::Row rowOf(const foundation::Value& entry, const Keys& keys);
std::vector<TextOutput::Row> rowsOf(const foundation::Array& entries, const Keys& keys);

/// "1 device", "3 devices".
std::string counted(std::size_t count, std::string_view noun);

}  // namespace inspect
