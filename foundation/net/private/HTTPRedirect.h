#pragma once

#include <optional>

#include "foundation/base/Error.h"
#include "foundation/net/URLRequest.h"

namespace foundation {

/// Most redirects that are followed for one exchange.
inline constexpr int kMaximumRedirects = 16;

/// The request that follows a redirect; absent when the answer is none that is to be followed.
///
/// Only 301, 302, 303, 307 and 308 to the same scheme, host and port are followed: the credentials
/// of a request are header fields and leave its origin for nobody. 303 becomes a GET without body,
/// as does a POST on 301 and 302; everything else is repeated as it was.
std::optional<URLRequest> requestAfterRedirect(const URLRequest& request,
                                               const HTTPResponse& response);

/// What ends an exchange that is redirected once too often.
Error tooManyRedirects(const URL& url);

}  // namespace foundation
