#pragma once

#include <optional>
#include <string>

#include "foundation/crypto/Digest.h"

struct evp_pkey_st;

namespace foundation {

/// A DER-encoded ECDSA signature whose nonce is derived from key and digest (RFC 6979, HMAC with
/// SHA-256), so that the same input gives the same bytes. Absent if the key is not on P-256 or
/// OpenSSL fails.
std::optional<std::string> deterministicSignature(const SHA256Digest& digest, evp_pkey_st* key);

}  // namespace foundation
