#include "foundation/net/private/CurlRequest.h"

#include <new>

#include "foundation/net/private/CurlErrors.h"
#include "foundation/process/ProcessInfo.h"

namespace foundation {

namespace {

bool isLineText(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

/// True for a token (RFC 9110, 5.6.2), as a method and a field name must be.
bool isToken(std::string_view text) {
  constexpr std::string_view kAllowed =
      "!#$%&'*+-.^_`|~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return !text.empty() && text.find_first_not_of(kAllowed) == std::string_view::npos;
}

/// Only the transport knows these values, so a caller's are never sent.
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

/// A trailing ";" makes the library send a field without a value.
std::string headerLine(const std::string& name, const std::string& value) {
  return trimmed(value).empty() ? name + ";" : name + ": " + value;
}

bool carriesLength(const std::string& method) {
  return method == "POST" || method == "PUT" || method == "PATCH";
}

void setFromEnvironment(CURL* easy, const char* variable,
                        std::initializer_list<CURLoption> options) {
  const auto path = ProcessInfo::nonEmptyEnvironmentValue(variable);
  if (!path) return;
  for (const CURLoption option : options) setOption(easy, option, path->c_str());
}

void setTrust(CURL* easy) {
  setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  setFromEnvironment(easy, "SSL_CERT_FILE", {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO});
  setFromEnvironment(easy, "SSL_CERT_DIR", {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH});
}

void setMethod(CURL* easy, const URLRequest& request) {
  if (request.method == "HEAD") return setOption(easy, CURLOPT_NOBODY, 1L);
  const std::uint64_t size = request.body ? request.body->size() : 0;
  if (size != 0 || carriesLength(request.method)) {
    setOption(easy, CURLOPT_UPLOAD, 1L);
    setOption(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
    setOption(easy, CURLOPT_UPLOAD_BUFFERSIZE, 256L * 1024);
  }
  setOption(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

CurlList setHeaders(CURL* easy, const HeaderFields& fields) {
  CurlList lines;
  for (const auto& [name, value] : fields) {
    if (!isOwnField(name)) append(lines, headerLine(name, value));
  }
  append(lines, "Expect:");  // without a value: never sent
  if (!fields.contains("Accept")) append(lines, "Accept:");
  setOption(easy, CURLOPT_HTTPHEADER, lines.get());
  setOption(easy, CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE));  // none for a proxy
  setOption(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  return lines;
}

}  // namespace

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
    return urlError(kURLErrorUnknown, "the request's method is not an HTTP method");
  }
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name) || !isLineText(value)) {
      return urlError(kURLErrorUnknown, "a header field of the request cannot be sent in one line");
    }
  }
  return std::nullopt;
}

CurlList setOptions(CURL* easy, const URLRequest& request) {
  setOption(easy, CURLOPT_URL, request.url->absoluteString().c_str());
  setOption(easy, CURLOPT_PATH_AS_IS, 1L);
  setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  setOption(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  setOption(easy, CURLOPT_FOLLOWLOCATION, 0L);
  setOption(easy, CURLOPT_NOSIGNAL, 1L);
  // A name server that does not answer must not hold up the end of a transfer.
  setOption(easy, CURLOPT_QUICK_EXIT, 1L);
  setOption(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.idleTimeout.count()));
  setOption(easy, CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  setOption(easy, CURLOPT_SHARE, cookieJarFor(*request.url));
  setOption(easy, CURLOPT_COOKIEFILE, "");
  setTrust(easy);
  setMethod(easy, request);
  return setHeaders(easy, request.headers);
}

}  // namespace foundation
