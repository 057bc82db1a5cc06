#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/crypto/Certificate.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/Blobs.h"

/// Code requirements: a small prefix language that says which code counts as this code.
/// Format: requirement.h and reqdumper.cpp in Apple's open Security sources.
namespace toolchain {

namespace requirement {
/// The type of requirement that says which other code counts as this code.
inline constexpr std::uint32_t kDesignated = 3;

enum class Operation : std::uint32_t {
  never = 0,
  always = 1,
  identifier = 2,
  anchorApple = 3,
  anchorHash = 4,
  conjunction = 6,
  disjunction = 7,
  cdHash = 8,
  negation = 9,
  infoKey = 10,
  certificateField = 11,
  certificateOID = 14,
  anchorAppleGeneric = 15,
  entitlement = 16,
  certificatePolicy = 17,
};

enum class Match : std::uint32_t {
  exists = 0,
  equal = 1,
  contains = 2,
  beginsWith = 3,
  endsWith = 4,
  less = 5,
  greater = 6,
  lessEqual = 7,
  greaterEqual = 8,
  absent = 14,
};

/// One node; the operation determines which members are used.
struct Expression {
  Operation operation = Operation::never;
  /// One for `negation`, two for `conjunction` and `disjunction`.
  std::vector<Expression> operands = {};
  /// Certificate position: 0 the leaf, 1 its issuer, -1 the root.
  std::int32_t certificate = 0;
  /// Key or field name; for `certificateOID` and `certificatePolicy` the OID's bare content.
  std::string key = {};
  /// The identifier, hash or cdhash.
  std::string data = {};
  Match match = Match::exists;
  std::string matchValue = {};
};

}  // namespace requirement

/// One requirement of a set; `blob` includes its header.
struct TypedRequirement {
  std::uint32_t type = 0;
  Bytes blob;
};

/// The requirements in a slot-2 blob, each type once; refers to `blob`.
Result<std::vector<TypedRequirement>> parseRequirementSet(Bytes blob);
/// The expression in one requirement blob. Fails beyond 128 levels of nesting.
Result<requirement::Expression> parseRequirement(Bytes blob);
/// The language's text form, as the platform prints it.
std::string text(const requirement::Expression& expression);
/// The blob with the expression's prefix form.
std::vector<std::byte> makeRequirement(const requirement::Expression& expression);
/// The slot-2 blob with one designated requirement.
std::vector<std::byte> makeRequirementSet(const requirement::Expression& designated);
/// The slot-2 blob with none: what ad-hoc signing writes.
std::vector<std::byte> emptyRequirementSet();

/// How to recognise one of Apple's root certificates.
using RootTest = bool (*)(const foundation::Certificate&);
/// By the certificate's SHA-256, as verification does.
bool isAppleRoot(const foundation::Certificate& certificate);
bool isAppleRoot(const foundation::SHA256Digest& certificate);
/// By its name alone, as signing does, since devices decide which roots they trust. Under a root
/// that only borrows the name, the new signature's requirement is never met.
bool isNamedLikeAppleRoot(const foundation::Certificate& certificate);

/// What "anchor apple generic" requires: a chain (leaf first) that ends in one of Apple's roots,
/// with at least one issuer in between.
bool endsInAppleRoot(const std::vector<foundation::Certificate>& chain, RootTest isAppleRoot);

/// What "anchor apple" requires: the same for Apple's own code, issued under none of its developer
/// programs.
bool isAppleOwn(const std::vector<foundation::Certificate>& chain, RootTest isAppleRoot);

/// The extensions that mark issuers of developer identities: for apps, and for code distributed
/// outside a store.
inline constexpr std::string_view kDeveloperIssuerMark = "1.2.840.113635.100.6.2.1";
inline constexpr std::string_view kDeveloperIDIssuerMark = "1.2.840.113635.100.6.2.6";

/// What the platform's tool writes by default: for a developer's certificate under a root named
/// like Apple's, the leaf's name and the issuer's mark; otherwise the hash of the last certificate
/// of the leaf's organisation. `chain` is leaf first and ends with the root.
requirement::Expression defaultRequirement(const std::string& identifier,
                                           const std::vector<foundation::Certificate>& chain);

}  // namespace toolchain
