#include <algorithm>
#include <new>

#include "foundation/net/private/CurlErrors.h"
#include "foundation/net/private/CurlTransfer.h"
#include "foundation/process/ProcessInfo.h"

namespace foundation {

namespace {

/// Every option that is set here exists in the library's oldest version that this builds with, so
/// only lack of memory can make it fail.
template <class T>
void set(CURL* easy, CURLoption option, T value) {
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) throw std::bad_alloc();
}

bool isLineText(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

/// RFC 9110's token: what a method and a field name may hold.
bool isToken(std::string_view text) {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kMarks.find(c) != std::string_view::npos;
  });
}

std::optional<Error> whyNotSendable(const URLRequest& request) {
  if (!request.url) return urlError(kURLErrorUnsupportedURL, "the request has no URL");
  const std::string scheme = request.url->scheme();
  if (scheme != "http" && scheme != "https") {
    return urlError(kURLErrorUnsupportedURL, "not an http or https URL: scheme \"" + scheme + "\"");
  }
  if (request.url->host().empty()) {
    return urlError(kURLErrorUnsupportedURL, "the URL names no host");
  }
  if (!isToken(request.method)) {
    return urlError(kURLErrorUnknown, "the request's method is no HTTP method");
  }
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name) || !isLineText(value)) {
      return urlError(kURLErrorUnknown, "a header field of the request cannot be sent in one line");
    }
  }
  return std::nullopt;
}

/// What only the transport can know, so that a caller's value never gets out.
bool isOwnField(std::string_view name) {
  const std::string lower = lowercased(name);
  return lower == "content-length" || lower == "transfer-encoding" || lower == "expect";
}

void append(CurlList& list, const std::string& line) {
  curl_slist* grown = curl_slist_append(list.get(), line.c_str());
  if (!grown) throw std::bad_alloc();
  (void)list.release();
  list.reset(grown);
}

/// A trailing ";" is the library's way to write a field without value.
std::string headerLine(const std::string& name, const std::string& value) {
  return trimmed(value).empty() ? name + ";" : name + ": " + value;
}

bool carriesLength(const std::string& method) {
  return method == "POST" || method == "PUT" || method == "PATCH";
}

void setFromEnvironment(CURL* easy, const char* variable,
                        std::initializer_list<CURLoption> options) {
  const auto path = ProcessInfo::environmentValue(variable);
  if (!path || path->empty()) return;
  for (const CURLoption option : options) set(easy, option, path->c_str());
}

}  // namespace

Result<std::unique_ptr<CurlTransfer>> CurlTransfer::make(URLRequest request, BeforeTLS beforeTLS) {
  if (auto error = whyNotSendable(request)) return *std::move(error);
  std::unique_ptr<CurlTransfer> transfer(
      new CurlTransfer(std::move(request), std::move(beforeTLS)));
  if (!transfer->easy()) throw std::bad_alloc();
  transfer->setUp();
  return transfer;
}

void CurlTransfer::setUp() {
  set(easy(), CURLOPT_URL, request_.url->absoluteString().c_str());
  set(easy(), CURLOPT_PATH_AS_IS, 1L);
  set(easy(), CURLOPT_PROTOCOLS_STR, "http,https");
  set(easy(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(easy(), CURLOPT_FOLLOWLOCATION, 0L);
  set(easy(), CURLOPT_NOSIGNAL, 1L);
  // A name server that does not answer must not hold up the end of a transfer.
  set(easy(), CURLOPT_QUICK_EXIT, 1L);
  set(easy(), CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.idleTimeout.count()));
  set(easy(), CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  set(easy(), CURLOPT_SHARE, cookieJarFor(*request_.url));
  set(easy(), CURLOPT_COOKIEFILE, "");
  setUpTrust();
  setUpBody();
  setUpHeaders();
  setUpCallbacks();
}

void CurlTransfer::setUpTrust() {
  set(easy(), CURLOPT_SSL_VERIFYPEER, 1L);
  set(easy(), CURLOPT_SSL_VERIFYHOST, 2L);
  setFromEnvironment(easy(), "SSL_CERT_FILE", {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO});
  setFromEnvironment(easy(), "SSL_CERT_DIR", {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH});
}

void CurlTransfer::setUpBody() {
  if (request_.method == "HEAD") {
    set(easy(), CURLOPT_NOBODY, 1L);
    return;
  }
  if (request_.body->size() != 0 || carriesLength(request_.method)) {
    set(easy(), CURLOPT_UPLOAD, 1L);
    set(easy(), CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request_.body->size()));
    set(easy(), CURLOPT_UPLOAD_BUFFERSIZE, 256L * 1024);
  }
  set(easy(), CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

void CurlTransfer::setUpHeaders() {
  for (const auto& [name, value] : request_.headers) {
    if (!isOwnField(name)) append(headers_, headerLine(name, value));
  }
  append(headers_, "Expect:");  // without a value: never sent
  if (!request_.headers.contains("Accept")) append(headers_, "Accept:");
  set(easy(), CURLOPT_HTTPHEADER, headers_.get());
  set(easy(), CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE));  // none for a proxy
  set(easy(), CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

}  // namespace foundation
