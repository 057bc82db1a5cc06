#include "foundation/net/Proxy.h"

#include <curl/curl.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/process/ProcessInfo.h"

namespace foundation {

namespace {

using CurlURL = Handle<CURLU, curl_url_cleanup>;
using CurlText = Handle<char, curl_free>;

std::optional<std::string> variable(const std::string& name) {
  auto value = ProcessInfo::environmentValue(name);
  return value && !value->empty() ? value : std::nullopt;
}

/// The variables in libcurl's order. `HTTP_PROXY` is none of them: a web server sets it from a
/// header of the request.
std::optional<std::string> proxyInEnvironment(const std::string& scheme) {
  if (auto value = variable(scheme + "_proxy")) return value;
  if (scheme == "https") {
    if (auto value = variable("HTTPS_PROXY")) return value;
  }
  if (auto value = variable("all_proxy")) return value;
  return variable("ALL_PROXY");
}

std::optional<std::string> partOf(const CurlURL& url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return std::nullopt;
  return std::string(CurlText(text).get());
}

}  // namespace

std::optional<std::string> proxyPlaceFor(const URL& url) {
  const auto proxy = proxyInEnvironment(url.scheme());
  if (!proxy) return std::nullopt;
  const CurlURL parsed(curl_url());
  constexpr unsigned kLeniently = CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME;
  if (curl_url_set(parsed.get(), CURLUPART_URL, proxy->c_str(), kLeniently) != CURLUE_OK) {
    return std::nullopt;
  }
  auto host = partOf(parsed, CURLUPART_HOST);
  if (!host) return std::nullopt;
  std::erase_if(*host, [](char c) { return c == '[' || c == ']'; });  // of an IPv6 address
  const std::string usualPort = partOf(parsed, CURLUPART_SCHEME) == "https" ? "443" : "1080";
  return *host + " port " + partOf(parsed, CURLUPART_PORT).value_or(usualPort);
}

}  // namespace foundation
