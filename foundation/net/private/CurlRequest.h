#pragma once

#include <optional>

#include "foundation/base/Error.h"
#include "foundation/net/URLRequest.h"
#include "foundation/net/private/CurlLibrary.h"

namespace foundation {

/// Why a request cannot be sent (no URL, a scheme other than http and https, a line break in its
/// method or a header field); absent when it can.
std::optional<Error> whyNotSendable(const URLRequest& request);

/// Sets all options that a sendable request determines, except for the callbacks that move its body
/// and the response. The result must live as long as `easy`. Throws when memory runs out.
CurlList setOptions(CURL* easy, const URLRequest& request);

}  // namespace foundation
