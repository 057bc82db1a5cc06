#include "QVTWebClient/QVTWebRequest.h"

#include <cstring>

#include "QVTWebClient/QVTWebClient.h"
#include "QVTWebClient/QVTWebResponse.h"
#include "foundation/base/Assertion.h"
#include "foundation/base/Format.h"
#include "foundation/base/Text.h"

using FormRecord = QVTWebRequest::FormRecord;
using foundation::format;
using foundation::RequestBody;
using foundation::Value;

namespace {

constexpr std::string_view kBoundary = "AaB03x";
/// A line that begins with this ends a part.
constexpr std::string_view kDelimiter = "--AaB03x";
constexpr std::chrono::seconds kIdleTimeout{15};

/// False, which ends the record, when there is no value.
template <class T>
bool add(QVTWebRequest::FormRecord& record, std::string_view key, const std::optional<T>& value) {
  if (value) record.emplace(key, *value);
  return value.has_value();
}

void appendTextPart(RequestBody& body, const Value* name, const std::string& text) {
  body.append(format("--%@\r\nContent-Disposition: form-data; name=\"%@\"\r\n", kBoundary, name) +
              "Content-Type: text/plain\r\n\r\n" + text + "\r\n");
}

void appendFilePart(RequestBody& body, const QVTWebRequest::FormRecord& record,
                    const foundation::Data& bytes) {
  const Value* mimeType = foundation::find(record, "mime-type");
  std::string header =
      format("--%@\r\nContent-Disposition: form-data; name=\"%@\"; filename=\"%@\"\r\n", kBoundary,
             foundation::find(record, "field"), foundation::find(record, "filename"));
  header += mimeType ? format("Content-Type: %@\r\n", mimeType) +
                           "Content-Transfer-Encoding: binary\r\n\r\n"
                     : "Content-Type: application/octet-stream\r\n\r\n";
  body.append(std::move(header));
  body.append(bytes);
  body.append(std::string("\r\n"));
}

bool fitsIntoHeader(const FormRecord& record, std::string_view key) {
  const Value* const value = foundation::find(record, key);
  return !value || format("%@", value).find_first_of("\"\r\n") == std::string::npos;
}

/// Strict for text, which a receiver may split at any line break.
bool hasDelimiter(std::string_view text) {
  for (auto at = text.find(kDelimiter); at != text.npos; at = text.find(kDelimiter, at + 1)) {
    if (at == 0 || text[at - 1] == '\n' || text[at - 1] == '\r') return true;
  }
  return false;
}

/// In binary data only CRLF ends a line. memmem keeps up with large files.
bool hasDelimiter(foundation::Bytes bytes) {
  const std::string line = "\r\n" + std::string(kDelimiter);
  return foundation::textOf(bytes).starts_with(kDelimiter) ||
         ::memmem(bytes.data(), bytes.size(), line.data(), line.size()) != nullptr;
}

/// Null when the record is fine.
const char* problemOf(const FormRecord& record) {
  const Value* const value = foundation::find(record, "value");
  if (!value || (!value->string() && !value->data())) return nullptr;  // left out of the form
  for (const std::string_view key : {"field", "filename", "mime-type"}) {
    if (value->string() && key != "field") break;  // not in the header of a text part
    if (!fitsIntoHeader(record, key)) return "a quotation mark or line break in its header";
  }
  const bool ends =
      value->string() ? hasDelimiter(*value->string()) : hasDelimiter(value->data()->bytes());
  return ends ? "the form's own delimiter in its value" : nullptr;
}

}  // namespace

std::shared_ptr<QVTWebRequest> QVTWebRequest::requestWithMethodPath(
    std::optional<std::string> method, std::optional<std::string> path) {
  foundation::assertThat(path.has_value(), "path",
                         {.function = "+[QVTWebRequest requestWithMethod:path:]",
                          .source = "QVTWebClient/QVTWebRequest"});
  auto request = initWithMethod(std::move(method));
  request->setPath(*std::move(path));
  return request;
}

std::shared_ptr<QVTWebRequest> QVTWebRequest::initWithMethod(std::optional<std::string> method) {
  foundation::assertThat(
      method.has_value(), "method",
      {.function = "-[QVTWebRequest initWithMethod:]", .source = "QVTWebClient/QVTWebRequest"});
  return std::shared_ptr<QVTWebRequest>(new QVTWebRequest(*std::move(method)));
}

void QVTWebRequest::addValueForHTTPHeaderField(std::string value, std::string_view field) {
  customHeaders_.insert_or_assign(std::string(field), std::move(value));
}

void QVTWebRequest::addHeaders(const Headers& headers) {
  customHeaders_.insert(headers.begin(), headers.end());
}

void QVTWebRequest::addFormRecord(FormRecord record) {
  if (!formFields_) formFields_.emplace();
  formFields_->push_back(std::move(record));
}

void QVTWebRequest::addValueForFormField(const std::optional<Value>& value,
                                         const std::optional<std::string>& field) {
  FormRecord record;
  if (add(record, "value", value) && add(record, "field", field)) {
    record.emplace("mime-type", "text/plain");
  }
  addFormRecord(std::move(record));
}

void QVTWebRequest::addDataMIMETypeFileNameForFormField(const std::optional<foundation::Data>& data,
                                                        const std::optional<std::string>& mimeType,
                                                        const std::optional<std::string>& fileName,
                                                        const std::optional<std::string>& field) {
  FormRecord record;
  if (add(record, "value", data) && add(record, "field", field) &&
      add(record, "mime-type", mimeType)) {
    add(record, "filename", fileName);
  }
  addFormRecord(std::move(record));
}

void QVTWebRequest::setFormData(const foundation::Dictionary& fields) {
  for (const auto& [name, value] : fields) addValueForFormField(value, name);
}

void QVTWebRequest::addValueForFormFromDictWithPrefix(const foundation::Dictionary& fields,
                                                      std::string_view prefix) {
  for (const auto& [key, value] : fields) {
    addValueForFormField(value, format("%@[%@]", prefix, key));
  }
}

void QVTWebRequest::addValueForFormFromDict(const foundation::Dictionary& fields) {
  addValueForFormFromDictWithPrefix(fields, "");
}

std::optional<foundation::URL> QVTWebRequest::fullURL() const {
  if (!url_) return std::nullopt;
  std::string text = url_->absoluteString();
  if (parameters_ && !parameters_->empty()) {
    text += '?';
    for (const auto& [key, value] : *parameters_) {
      text += format("%@=%@&", QVTWebClient::escapeURLString(key),
                     QVTWebClient::escapeURLString(value));
    }
    text.pop_back();
  }
  return foundation::URL::withString(text);
}

foundation::URLRequest QVTWebRequest::URLRequest() {
  foundation::URLRequest request;
  request.url = fullURL();
  request.idleTimeout = kIdleTimeout;
  request.method = method_;
  request.body = formData();
  // After formData, which sets the content type.
  request.headers = customHeaders_;
  return request;
}

std::optional<foundation::Error> QVTWebRequest::formProblem() const {
  if (!formFields_) return std::nullopt;
  for (const auto& record : *formFields_) {
    const char* const problem = problemOf(record);
    if (!problem) continue;
    const std::string name = format("%@", foundation::find(record, "field"));
    return foundation::makeError(
        QVTWebClientErrorDomain, QVTWebClientErrorAmbiguousForm,
        "the form field " + foundation::escapingControlCharacters(name) + " has " + problem);
  }
  return std::nullopt;
}

std::optional<RequestBody> QVTWebRequest::formData() {
  if (!formFields_ || formFields_->empty()) return std::nullopt;
  RequestBody body;
  body.append(std::string("MIME-Version: 1.0\r\n"));
  for (const auto& record : *formFields_) {
    const Value* value = foundation::find(record, "value");
    if (value && value->string()) {
      appendTextPart(body, foundation::find(record, "field"), *value->string());
    } else if (value && value->data()) {
      appendFilePart(body, record, *value->data());
    }
  }
  body.append(format("--%@--\r\n", kBoundary));
  addValueForHTTPHeaderField(format("multipart/form-data; boundary=%@", kBoundary), "Content-Type");
  return body;
}
