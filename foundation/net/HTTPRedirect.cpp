#include "foundation/net/private/HTTPRedirect.h"

#include "foundation/net/private/CurlErrors.h"

namespace foundation {

namespace {

std::optional<URL> redirectTarget(const URL& from, const HTTPResponse& response) {
  const auto location = response.headers.find("Location");
  if (location == response.headers.end() || location->second.empty()) return std::nullopt;
  auto target = URL::withStringRelativeToURL(location->second, from);
  if (!target || !target->hasSameOriginAs(from)) return std::nullopt;
  return target;
}

bool becomesGet(const std::string& method, long statusCode) {
  if (statusCode == 303) return method != "GET" && method != "HEAD";
  return (statusCode == 301 || statusCode == 302) && method == "POST";
}

}  // namespace

std::optional<URLRequest> requestAfterRedirect(const URLRequest& request,
                                               const HTTPResponse& response) {
  const long status = response.statusCode;
  if (status != 301 && status != 302 && status != 303 && status != 307 && status != 308) {
    return std::nullopt;
  }
  auto target = redirectTarget(*request.url, response);
  if (!target) return std::nullopt;
  URLRequest next = request;
  next.url = std::move(target);
  if (becomesGet(request.method, status)) {
    next.method = "GET";
    next.body.reset();
    next.headers.erase("Content-Type");
  }
  return next;
}

Error tooManyRedirects(const URL& url) {
  return urlError(kURLErrorHTTPTooManyRedirects, placeOf(url) + " redirected more than " +
                                                     std::to_string(kMaximumRedirects) + " times");
}

}  // namespace foundation
