#pragma once

#include <string>
#include <string_view>

#include <curl/curl.h>

#include "foundation/base/Error.h"
#include "foundation/base/URL.h"

// The transport's failures as errors of "NSURLErrorDomain"; for this folder's own sources only.

namespace foundation {

inline constexpr long kURLErrorUnknown = -1;
inline constexpr long kURLErrorTimedOut = -1001;
inline constexpr long kURLErrorUnsupportedURL = -1002;
inline constexpr long kURLErrorCannotFindHost = -1003;
inline constexpr long kURLErrorCannotConnectToHost = -1004;
inline constexpr long kURLErrorNetworkConnectionLost = -1005;
inline constexpr long kURLErrorHTTPTooManyRedirects = -1007;
inline constexpr long kURLErrorBadServerResponse = -1011;
inline constexpr long kURLErrorDataLengthExceedsMaximum = -1103;
inline constexpr long kURLErrorSecureConnectionFailed = -1200;
inline constexpr long kURLErrorServerCertificateUntrusted = -1202;

Error urlError(long code, std::string description);

/// "HOST port N": the only part of a URL that error texts show, since the rest may hold a secret.
std::string placeOf(const URL& url);

struct TransportFailure {
  std::string place;
  /// The proxy for it, used or not; empty without one.
  std::string proxy;
  CURLcode result = CURLE_OK;
  /// errno of a failed connection attempt; 0 when there is none.
  int systemError = 0;
  /// The status of a proxy's response to CONNECT; 0 without one.
  long tunnelStatus = 0;
  /// The library's error text.
  std::string_view detail;
};

Error transportError(const TransportFailure& failure);

}  // namespace foundation
