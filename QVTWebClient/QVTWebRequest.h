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

/// One HTTP request before it is sent. Built, then started once by a client, which fills in the URL
/// and its own headers. Not for several threads at once.
class QVTWebRequest {
 public:
  /// Keys "value" (text or data), "field", "mime-type" and, for files, "filename".
  using FormRecord = foundation::Dictionary;
  using Parameters = std::map<std::string, std::string>;
  using Headers = foundation::HeaderFields;
  /// Decides whether the exchange may go on for this server trust; the certificate is verified
  /// whatever it says.
  using ProtectionSpaceHandler = std::function<bool(const foundation::ProtectionSpace&)>;

  /// Both are required: a missing one is a programming fault.
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

  /// Sets, replacing an earlier value of the same name.
  void addValueForHTTPHeaderField(std::string value, std::string_view field);
  /// Adds the headers that the request does not have yet.
  void addHeaders(const Headers& headers);

  void addFormRecord(FormRecord record);
  /// A record ends at its first absent part: without a value it is empty, without a name it has
  /// only the value.
  void addValueForFormField(const std::optional<foundation::Value>& value,
                            const std::optional<std::string>& field);
  /// The same; without a MIME type the record has neither MIME type nor file name.
  void addDataMIMETypeFileNameForFormField(const std::optional<foundation::Data>& data,
                                           const std::optional<std::string>& mimeType,
                                           const std::optional<std::string>& fileName,
                                           const std::optional<std::string>& field);
  /// Adds one field per entry to those that are there.
  void setFormData(const foundation::Dictionary& fields);
  /// Adds fields named "prefix[key]", one level deep.
  void addValueForFormFromDictWithPrefix(const foundation::Dictionary& fields,
                                         std::string_view prefix);
  /// The same with an empty prefix: fields named "[key]".
  void addValueForFormFromDict(const foundation::Dictionary& fields);

  /// The URL with the parameters as its query; absent when there is no URL or the text is none.
  [[nodiscard]] std::optional<foundation::URL> fullURL() const;
  /// Rebuilt on each call. Sets the "Content-Type" header when there are form fields.
  foundation::URLRequest URLRequest();
  /// The multipart body; file bytes are shared, not copied. Absent without form fields, else sets
  /// the "Content-Type" header. Records whose value is neither text nor data are left out.
  std::optional<foundation::RequestBody> formData();
  /// Why the receiver would not find the fields of `formData` as they are here: a value with a line
  /// that begins with the boundary, or a name, MIME type or file name with a quotation mark or line
  /// break. Absent when the form is fine. A request with such a form is not sent.
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
