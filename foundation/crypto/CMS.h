#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

/// Cryptographic Message Syntax (RFC 5652): the detached signatures in code signatures.
namespace foundation::CMS {

/// A signed attribute. Each value is a whole DER element.
struct Attribute {
  std::string oid;
  std::vector<Data> values;
};

/// Signs `content` with SHA-256: SignedData version 1 with one SignerInfo by issuer and serial
/// number, and `chain` (leaf first) as certificates. The attributes contentType, signingTime and
/// messageDigest are added to `attributes`. Fails for a key that is neither RSA nor EC or cannot
/// sign, and for a malformed OID.
Result<Data> signDetached(Bytes content, const Identity& identity,
                          const std::vector<Certificate>& chain, Date signingTime,
                          const std::vector<Attribute>& attributes);

struct Signer {
  Certificate certificate;
  /// Leaf first, up to a self-issued root.
  std::vector<Certificate> chain;
  std::optional<Date> signingTime;
  /// In the message's order. Empty if the signature is over the content itself, as older tools made
  /// it.
  std::vector<Attribute> signedAttributes;
};

/// Verifies a detached signature in DER or BER over `content`: message digest, signature, and the
/// chain up to a root in the message. Does not check whether that root is trusted or certificates
/// have expired. Zero bytes may follow the message. Fails with one line that says why.
Result<Signer> verifyDetached(Bytes message, Bytes content);

}  // namespace foundation::CMS
