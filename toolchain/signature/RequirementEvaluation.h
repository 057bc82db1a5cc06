#pragma once

#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"
#include "toolchain/signature/Requirement.h"

namespace toolchain {

/// The code that a requirement is evaluated for.
struct RequirementSubject {
  std::string identifier;
  /// 20 bytes each, one for every CodeDirectory.
  std::vector<std::vector<std::byte>> cdHashes;
  /// Leaf first, root last; empty for ad-hoc code.
  std::vector<foundation::Certificate> chain;
  foundation::Dictionary info;
  foundation::Dictionary entitlements;
  RootTest isAppleRoot = toolchain::isAppleRoot;
};

/// Whether the code meets the requirement. Consults no trust store; see `endsInAppleRoot` and
/// `isAppleOwn` for Apple's anchors. The work is bounded: a requirement that would take too long,
/// which depends on its size times that of the certificates it names, is not met.
bool meets(const RequirementSubject& subject, const requirement::Expression& expression);

}  // namespace toolchain
