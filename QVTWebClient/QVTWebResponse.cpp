#include "QVTWebClient/QVTWebResponse.h"

#include "foundation/base/Format.h"

using foundation::Value;

void QVTWebResponse::appendData(foundation::Bytes bytes) {
  responseData_.insert(responseData_.end(), bytes.begin(), bytes.end());
}

bool QVTWebResponse::wasSuccessful() const {
  return !error_ && statusCode_ >= 200 && statusCode_ <= 299;
}

std::string QVTWebResponse::description() const {
  std::optional<std::string> url;
  if (requestURL_) url = requestURL_->absoluteString();
  std::optional<Value> headers;
  if (responseHeaders_) {
    headers = foundation::Dictionary(responseHeaders_->begin(), responseHeaders_->end());
  }
  return foundation::format("{request: %@, status: %lu, body: %@, error: %@, headers: %@}", url,
                            statusCode_, body_, error_, headers);
}
