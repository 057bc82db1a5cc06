#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// One part of a form as the service sees it.
struct FormPart {
  std::string name;
  std::string value;
  /// Only a file has these.
  std::optional<std::string> fileName;
  std::optional<std::string> type;

  friend bool operator==(const FormPart&, const FormPart&) = default;
};

using Form = std::vector<FormPart>;

/// A text part.
FormPart field(std::string_view name, std::string_view value);

/// Parses a form that is byte for byte as the release service expects it (RFC 2046 with the
/// boundary "AaB03x", CR LF line ends, part headers in a fixed order). Throws std::runtime_error
/// with the first difference. A file's content may be anything without a delimiter.
Form parseForm(std::string_view body);

/// The values of every part of this name, in order.
std::vector<std::string> valuesOf(const Form& form, std::string_view name);

/// One line per part, for people: "name = value", long and binary values shortened.
std::string describe(const Form& form);

}  // namespace test
