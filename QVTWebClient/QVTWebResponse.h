#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Error.h"
#include "foundation/base/Value.h"
#include "foundation/net/URLRequest.h"

/// Errors of the client itself: a status other than the expected one, a request for authentication,
/// a form that a receiver would misread.
inline constexpr std::string_view QVTWebClientErrorDomain = "QVTWebClientErrorDomain";
inline constexpr long QVTWebClientErrorUnexpectedStatus = -1;
inline constexpr long QVTWebClientErrorAuthenticationRefused = -2;
inline constexpr long QVTWebClientErrorAmbiguousForm = -3;

/// The outcome of one request. An asynchronous exchange changes it only on its own queue, before
/// delivering it.
class QVTWebResponse {
 public:
  /// The URL that was sent, query included; absent when the request had none.
  [[nodiscard]] const std::optional<foundation::URL>& requestURL() const { return requestURL_; }
  void setRequestURL(std::optional<foundation::URL> url) { requestURL_ = std::move(url); }
  /// 0 until response headers arrive.
  [[nodiscard]] std::uint64_t statusCode() const { return statusCode_; }
  void setStatusCode(std::uint64_t code) { statusCode_ = code; }
  /// A decoded document after an asynchronous exchange, else the raw bytes; absent when nothing was
  /// received or a document is malformed.
  [[nodiscard]] const std::optional<foundation::Value>& body() const { return body_; }
  void setBody(std::optional<foundation::Value> body) { body_ = std::move(body); }
  /// Absent on a clean exchange, whatever its status.
  [[nodiscard]] const std::optional<foundation::Error>& error() const { return error_; }
  void setError(std::optional<foundation::Error> error) { error_ = std::move(error); }
  /// Absent until they arrive.
  [[nodiscard]] const std::optional<foundation::HeaderFields>& responseHeaders() const {
    return responseHeaders_;
  }
  void setResponseHeaders(foundation::HeaderFields headers) {
    responseHeaders_ = std::move(headers);
  }

  /// The bytes received so far; valid until the next change.
  [[nodiscard]] foundation::Bytes responseData() const { return responseData_; }
  void appendData(foundation::Bytes bytes);

  /// No error, and a status from 200 to 299.
  [[nodiscard]] bool wasSuccessful() const;
  [[nodiscard]] std::string description() const;

 private:
  std::optional<foundation::URL> requestURL_;
  std::uint64_t statusCode_ = 0;
  std::optional<foundation::Value> body_;
  std::optional<foundation::Error> error_;
  std::optional<foundation::HeaderFields> responseHeaders_;
  std::vector<std::byte> responseData_;
};
