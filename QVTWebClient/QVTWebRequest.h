#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Value.h"
#include "foundation/net/URLConnection.h"

/// An HTTP request. The client that starts it fills in the URL and the client's headers. Not
/// thread-safe.
class QVTWebRequest {
 public:
  /// Keys "value" (text or data), "field", "mime-type" and, for files, "filename".
  using FormRecord = foundation::Dictionary;
  using Parameters = std::map<std::string, std::string>;
  using Headers = foundation::HeaderFields;
  /// Whether to trust this server. The certificate is verified in either case.
  using ProtectionSpaceHandler = std::function<bool(const foundation::ProtectionSpace&)>;

  /// A missing method or path is a programming fault.
  static std::shared_ptr<QVTWebRequest> requestWithMethodPath(std::optional<std::string> method,
                                                              std::optional<std::string> path);
  static std::shared_ptr<QVTWebRequest> initWithMethod(std::optional<std::string> method);

  [[nodiscard]] const std::string& method() const { return method_; }
  void setMethod(std::string method) { method_ = std::move(method); }
  /// Relative to the client's base URL.
  [[nodiscard]] const std::string& path() const { return path_; }
  void setPath(std::string path) { path_ = std::move(path); }
  /// Absent until the caller or the client sets it.
  [[nodiscard]] const std::optional<foundation::URL>& URL() const { return url_; }
  void setURL(std::optional<foundation::URL> url) { url_ = std::move(url); }
  [[nodiscard]] const std::optional<Parameters>& parameters() const { return parameters_; }
  void setParameters(std::optional<Parameters> parameters) { parameters_ = std::move(parameters); }
  [[nodiscard]] const Headers& customHeaders() const { return customHeaders_; }
  /// Absent until the first form record.
  [[nodiscard]] const std::optional<std::vector<FormRecord>>& formFields() const {
    return formFields_;
  }
  [[nodiscard]] const ProtectionSpaceHandler& protectionSpaceHandler() const {
    return protectionSpaceHandler_;
  }
  void setProtectionSpaceHandler(ProtectionSpaceHandler handler) {
    protectionSpaceHandler_ = std::move(handler);
  }

  /// Replaces an earlier value of the same name.
  void addValueForHTTPHeaderField(std::string value, std::string_view field);
  /// Adds those that the request does not have yet.
  void addHeaders(const Headers& headers);

  void addFormRecord(FormRecord record);
  /// Everything from the first absent argument on is left out of the record.
  void addValueForFormField(const std::optional<foundation::Value>& value,
                            const std::optional<std::string>& field);
  /// The same, in the order data, field, MIME type, file name.
  void addDataMIMETypeFileNameForFormField(const std::optional<foundation::Data>& data,
                                           const std::optional<std::string>& mimeType,
                                           const std::optional<std::string>& fileName,
                                           const std::optional<std::string>& field);
  /// Adds one field per entry.
  void setFormData(const foundation::Dictionary& fields);
  /// Adds fields named "prefix[key]", one level deep.
  void addValueForFormFromDictWithPrefix(const foundation::Dictionary& fields,
                                         std::string_view prefix);
  /// The same with an empty prefix: fields named "[key]".
  void addValueForFormFromDict(const foundation::Dictionary& fields);

  /// The URL with the parameters as its query; absent when it is missing or malformed.
  [[nodiscard]] std::optional<foundation::URL> fullURL() const;
  /// Rebuilt on each call. Sets the "Content-Type" header when there are form fields.
  foundation::URLRequest URLRequest();
  /// The multipart body; file bytes are shared, not copied. Absent without form fields, else sets
  /// the "Content-Type" header. Records whose value is neither text nor data are left out.
  std::optional<foundation::RequestBody> formData();
  /// Why a receiver would read other fields from `formData`: a value with a line that begins with
  /// the boundary, or a quotation mark or line break in a name, MIME type or file name. Such a
  /// request is not sent. Absent when the form is unambiguous.
  [[nodiscard]] std::optional<foundation::Error> formProblem() const;

 private:
  explicit QVTWebRequest(std::string method) : method_(std::move(method)) {}

  std::string method_;
  std::string path_;
  std::optional<foundation::URL> url_;
  std::optional<Parameters> parameters_;
  Headers customHeaders_;
  std::optional<std::vector<FormRecord>> formFields_;
  ProtectionSpaceHandler protectionSpaceHandler_;
};
