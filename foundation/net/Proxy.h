#pragma once

#include <optional>
#include <string>

#include "foundation/base/URL.h"

namespace foundation {

/// "HOST port N" of the proxy that the environment names for the URL's scheme (`http_proxy`,
/// `https_proxy`, `all_proxy`), without its user name and password; absent when it names none or
/// one that cannot be read. `no_proxy` is not considered.
std::optional<std::string> proxyPlaceFor(const URL& url);

}  // namespace foundation
