#include "tests/support/MultipartForm.h"

#include <algorithm>
#include <stdexcept>

namespace test {

namespace {

constexpr std::string_view kDelimiter = "--AaB03x";

/// The unread rest of a body.
class Rest {
 public:
  explicit Rest(std::string_view body) : body_(body) {}

  void expect(std::string_view text) {
    if (!take(text)) fail("expected \"" + std::string(text) + "\"");
  }
  bool take(std::string_view text) {
    if (!body_.substr(at_).starts_with(text)) return false;
    at_ += text.size();
    return true;
  }
  /// Everything up to the next `end`, which is skipped.
  std::string until(std::string_view end) {
    const std::size_t found = body_.find(end, at_);
    if (found == std::string_view::npos) fail("no \"" + std::string(end) + "\" behind this point");
    std::string text(body_.substr(at_, found - at_));
    at_ = found + end.size();
    return text;
  }
  [[nodiscard]] bool atEnd() const { return at_ == body_.size(); }
  [[noreturn]] void fail(const std::string& why) const {
    throw std::runtime_error("form, byte " + std::to_string(at_) + ": " + why);
  }

 private:
  std::string_view body_;
  std::size_t at_ = 0;
};

/// The part's headers and the blank line after them.
FormPart readHead(Rest& rest) {
  FormPart part;
  rest.expect("\r\nContent-Disposition: form-data; name=\"");
  part.name = rest.until("\"");
  if (rest.take("; filename=\"")) {
    part.fileName = rest.until("\"");
    rest.expect("\r\nContent-Type: ");
    part.type = rest.until("\r\n");
    rest.expect("Content-Transfer-Encoding: binary\r\n\r\n");
  } else {
    rest.expect("\r\nContent-Type: text/plain\r\n\r\n");
  }
  return part;
}

std::string shortened(const std::string& value) {
  constexpr std::size_t kLongest = 200;
  const bool printable =
      std::ranges::all_of(value, [](char c) { return c == '\n' || c < 0 || c >= ' '; });
  if (printable && value.size() <= kLongest) return value;
  return "<" + std::to_string(value.size()) + " bytes>";
}

}  // namespace

FormPart field(std::string_view name, std::string_view value) {
  return {.name = std::string(name), .value = std::string(value), .fileName = {}, .type = {}};
}

Form parseForm(std::string_view body) {
  Rest rest(body);
  Form form;
  rest.expect("MIME-Version: 1.0\r\n");
  rest.expect(kDelimiter);
  while (!rest.take("--\r\n")) {
    FormPart part = readHead(rest);
    part.value = rest.until("\r\n" + std::string(kDelimiter));
    form.push_back(std::move(part));
  }
  if (!rest.atEnd()) rest.fail("more behind the closing delimiter");
  return form;
}

std::vector<std::string> valuesOf(const Form& form, std::string_view name) {
  std::vector<std::string> values;
  for (const FormPart& part : form) {
    if (part.name == name) values.push_back(part.value);
  }
  return values;
}

std::string describe(const Form& form) {
  std::string text;
  for (const FormPart& part : form) {
    text += part.name + " = ";
    if (part.fileName) {
      text +=
          *part.fileName + ", " + *part.type + ", " + std::to_string(part.value.size()) + " bytes";
    } else {
      text += shortened(part.value);
    }
    text += "\n";
  }
  return text;
}

}  // namespace test
