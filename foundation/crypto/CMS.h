#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

/// Cryptographic Message Syntax (RFC 5652): detached signatures as code signatures carry them.
namespace foundation::CMS {

/// A further signed attribute: its dotted OID and its values, each a whole DER element.
struct Attribute {
  std::string oid;
  std::vector<Data> values;
};

/// Signs `content`, detached, with SHA-256: SignedData version 1, one SignerInfo by issuer and
/// serial number, `chain` (leaf first) as certificates; the attributes contentType, signingTime and
/// messageDigest are added to `attributes`. All SETs are in DER order.
Result<Data> signDetached(Bytes content, const Identity& identity,
                          const std::vector<Certificate>& chain, Date signingTime,
                          const std::vector<Attribute>& attributes);

struct Signer {
  Certificate certificate;
  /// Leaf first, up to the self-issued root that the message carries.
  std::vector<Certificate> chain;
  std::optional<Date> signingTime;
  /// Empty when the signature is over the content itself, as older tools made it.
  std::vector<Attribute> signedAttributes;
};

/// Verifies a detached signature in DER or BER over `content`: message digest, signature, and the
/// chain up to the root that the message carries. Trust in that root is the caller's question.
Result<Signer> verifyDetached(Bytes message, Bytes content);

}  // namespace foundation::CMS
