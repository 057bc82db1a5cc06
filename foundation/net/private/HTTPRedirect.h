#pragma once

#include <optional>

#include "foundation/base/Error.h"
#include "foundation/net/URLRequest.h"

namespace foundation {

/// Most redirects that are followed for one exchange.
inline constexpr int kMaximumRedirects = 16;

/// The request that follows a redirect; absent when the response is not a redirect to follow.
///
/// Only 301, 302, 303, 307 and 308 to the same scheme, host and port are followed: a request's
/// credentials are header fields and must not reach another origin. 303 becomes a GET without body,
/// as does a POST on 301 and 302; everything else is repeated as is.
std::optional<URLRequest> requestAfterRedirect(const URLRequest& request,
                                               const HTTPResponse& response);

/// For an exchange that is redirected once too often.
Error tooManyRedirects(const URL& url);

}  // namespace foundation
