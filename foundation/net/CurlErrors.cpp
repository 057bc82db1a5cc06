#include "foundation/net/private/CurlErrors.h"

#include <cerrno>
#include <system_error>

namespace foundation {

namespace {

std::string withDetail(std::string text, std::string_view detail) {
  if (!detail.empty()) text.append(": ").append(detail);
  return text;
}

std::string proxyFor(const TransportFailure& failure) {
  return "the proxy " + failure.proxy + " for " + failure.place;
}

/// The library's error text contains the host and port that it has tried.
bool hasTriedProxy(const TransportFailure& failure) {
  return !failure.proxy.empty() &&
         failure.detail.find(failure.proxy + " ") != std::string_view::npos;
}

Error cannotConnect(const TransportFailure& failure) {
  std::string text =
      "cannot connect to " + (hasTriedProxy(failure) ? proxyFor(failure) : failure.place);
  if (failure.systemError != 0) {
    text = withDetail(std::move(text), std::generic_category().message(failure.systemError));
  }
  return urlError(kURLErrorCannotConnectToHost, std::move(text));
}

Error tunnelRefused(const TransportFailure& failure) {
  std::string text = "the proxy " + failure.proxy + " answered " +
                     std::to_string(failure.tunnelStatus) + " when asked for a connection to " +
                     failure.place;
  if (failure.tunnelStatus == 407) text += " (it wants a user name and password)";
  return urlError(kURLErrorCannotConnectToHost, std::move(text));
}

Error connectionLost(const TransportFailure& failure) {
  if (failure.tunnelStatus >= 300) return tunnelRefused(failure);
  // The library uses one code for a broken connection and for broken chunks.
  if (failure.detail.find("chunk") != std::string_view::npos) {
    return urlError(kURLErrorBadServerResponse,
                    failure.place + " sent a body whose chunks are broken");
  }
  return urlError(kURLErrorNetworkConnectionLost,
                  "the connection to " + failure.place + " was lost");
}

}  // namespace

Error urlError(long code, std::string description) {
  return makeError(kURLErrorDomain, code, std::move(description));
}

std::string placeOf(const URL& url) { return url.host() + " port " + std::to_string(url.port()); }

Error transportError(const TransportFailure& failure) {
  const std::string& place = failure.place;
  switch (failure.result) {
    case CURLE_OPERATION_TIMEDOUT:
      return urlError(kURLErrorTimedOut, "connecting to " + place + " took too long");
    case CURLE_URL_MALFORMAT:
      return urlError(kURLErrorUnsupportedURL, "not a URL that can be loaded");
    case CURLE_COULDNT_RESOLVE_HOST:
      return urlError(kURLErrorCannotFindHost, "cannot find the host of " + place);
    case CURLE_COULDNT_RESOLVE_PROXY:
      return urlError(kURLErrorCannotFindHost, "cannot find " + proxyFor(failure));
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
      if (failure.systemError == ECONNRESET) return connectionLost(failure);
      return failure.tunnelStatus >= 300 ? tunnelRefused(failure) : cannotConnect(failure);
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return connectionLost(failure);
    case CURLE_PEER_FAILED_VERIFICATION:
      return urlError(
          kURLErrorServerCertificateUntrusted,
          withDetail("the certificate of " + place + " is not trusted", failure.detail));
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
      return urlError(kURLErrorSecureConnectionFailed,
                      withDetail("no secure connection to " + place, failure.detail));
    case CURLE_OK:
    case CURLE_UNSUPPORTED_PROTOCOL:  // the response's, since the request's was checked
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_WRITE_ERROR:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_OUT_OF_MEMORY:  // how the library reports a field that is too long for it
      return urlError(kURLErrorBadServerResponse,
                      "the response of " + place + " is not valid HTTP");
    default:
      return urlError(kURLErrorUnknown, withDetail("the exchange with " + place + " failed",
                                                   curl_easy_strerror(failure.result)));
  }
}

}  // namespace foundation
