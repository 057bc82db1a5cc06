#pragma once

#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"
#include "toolchain/signature/Requirement.h"

namespace toolchain {

/// The code that a requirement is asked about.
struct RequirementSubject {
  std::string identifier;
  /// 20 bytes each, one of every CodeDirectory.
  std::vector<std::vector<std::byte>> cdHashes;
  /// Leaf first, root last; empty for ad-hoc code.
  std::vector<foundation::Certificate> chain;
  foundation::Dictionary info;
  foundation::Dictionary entitlements;
  RootTest isAppleRoot = toolchain::isAppleRoot;
};

/// Whether the code meets the requirement. No trust store is asked: "anchor apple generic" is met
/// by chains that end in one of Apple's roots, "anchor apple" by those of them that were issued
/// under none of its developer programs. One that takes too long to evaluate, which is about its
/// size times that of the certificates it asks about, is not met.
bool meets(const RequirementSubject& subject, const requirement::Expression& expression);

}  // namespace toolchain
