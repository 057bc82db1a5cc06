#include "inspect/Report.h"

#include "foundation/format/JSON.h"

namespace inspect {

using foundation::Value;

Value arrayOf(const std::vector<std::string>& texts) {
  return foundation::Array(texts.begin(), texts.end());
}

std::optional<std::string> textAt(const Value& document, std::string_view key) {
  const Value* value = document.find(key);
  if (!value || value->type() == Value::Type::null) return std::nullopt;
  if (const std::string* text = value->string()) return *text;
  // A single value is not a JSON document, so it is encoded as the only entry of an array.
  const std::string encoded = foundation::JSON::encode(foundation::Array{*value});
  std::string_view inner = std::string_view(encoded).substr(1, encoded.size() - 2);
  if (inner.size() >= 2 && inner.front() == '"') inner = inner.substr(1, inner.size() - 2);
  return std::string(inner);
}

const foundation::Array& entriesAt(const Value& document, std::string_view key) {
  static const foundation::Array kNone;
  const Value* value = document.find(key);
  const foundation::Array* entries = value ? value->array() : nullptr;
  return entries ? *entries : kNone;
}

TextOutput::Fields fieldsOf(const Value& document, const Keys& keys) {
  TextOutput::Fields fields;
  for (const auto key : keys) fields.emplace_back(key, textAt(document, key));
  return fields;
}

TextOutput::Row rowOf(const Value& entry, const Keys& keys) {
  TextOutput::Row row;
  for (const auto key : keys) row.push_back(textAt(entry, key).value_or("-"));
  return row;
}

std::vector<TextOutput::Row> rowsOf(const foundation::Array& entries, const Keys& keys) {
  std::vector<TextOutput::Row> rows;
  for (const auto& entry : entries) rows.push_back(rowOf(entry, keys));
  return rows;
}

std::string counted(std::size_t count, std::string_view noun) {
  return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

}  // namespace inspect
