#pragma once

#include <optional>
#include <string>

#include "foundation/crypto/Digest.h"

struct evp_pkey_st;

namespace foundation {

/// ECDSA with a nonce that is derived from key and digest (RFC 6979, HMAC with SHA-256), so that
/// signing the same twice gives the same bytes; the signature is the usual one in DER. Absent for a
/// key on another curve than P-256, and when the crypto library fails.
std::optional<std::string> deterministicSignature(const SHA256Digest& digest, evp_pkey_st* key);

}  // namespace foundation
