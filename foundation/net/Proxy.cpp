#include "foundation/net/Proxy.h"

#include <vector>

#include <curl/curl.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/process/ProcessInfo.h"

namespace foundation {

namespace {

using CurlURL = Handle<CURLU, curl_url_cleanup>;
using CurlText = Handle<char, curl_free>;

/// The variables in libcurl's order. `HTTP_PROXY` is not one of them: a web server sets it from a
/// header of the request.
std::optional<std::string> proxyInEnvironment(const std::string& scheme) {
  std::vector<std::string> names{scheme + "_proxy", "all_proxy", "ALL_PROXY"};
  if (scheme == "https") names.insert(names.begin() + 1, "HTTPS_PROXY");
  for (const std::string& name : names) {
    if (auto value = ProcessInfo::nonEmptyEnvironmentValue(name)) return value;
  }
  return std::nullopt;
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
