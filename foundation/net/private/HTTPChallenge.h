#pragma once

#include <optional>

#include "foundation/net/URLConnection.h"

namespace foundation {

/// The authentication challenge of a response: only a 401 that carries WWW-Authenticate or a 407
/// that carries Proxy-Authenticate counts (RFC 9110, 11). Scheme and realm are those of the first
/// one in the field.
std::optional<ProtectionSpace> challengeOf(const URL& url, const HTTPResponse& response);

/// The question whether the server's certificate is to be trusted.
ProtectionSpace serverTrustSpace(const URL& url);

}  // namespace foundation
