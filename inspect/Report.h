#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "inspect/TextOutput.h"

namespace inspect {

/// A sub-command's answer: the document that `--json` prints, and the same for people.
struct Report {
  /// Keys are named as the properties are; an absent value is null.
  foundation::Value document;
  std::function<void(TextOutput&)> showText;
  /// Exit status of the program.
  int status = 0;
};

/// The value, or JSON null for an absent one.
template <class T>
foundation::Value orNull(const std::optional<T>& value) {
  return value ? foundation::Value(*value) : foundation::Value();
}

foundation::Value arrayOf(const std::vector<std::string>& texts);

// Reading a document back for its text form.

/// The text under `key`; absent when it is null. Numbers and booleans are shown as
/// JSON shows them, dates as ISO 8601 in UTC.
std::optional<std::string> textAt(const foundation::Value& document, std::string_view key);
/// The entries under `key`; none when it is null.
const foundation::Array& entriesAt(const foundation::Value& document, std::string_view key);

using Fields = std::vector<std::pair<std::string, std::optional<std::string>>>;
/// One field per key, labelled with the key's own name.
Fields fieldsOf(const foundation::Value& document, const std::vector<std::string_view>& keys);

/// "1 device", "3 devices".
std::string counted(std::size_t count, std::string_view noun);

}  // namespace inspect
