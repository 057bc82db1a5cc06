#pragma once

#include <filesystem>
#include <string>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "toolchain/signature/Requirement.h"

namespace toolchain {

/// What code says about itself, not verified.
struct SignatureFacts {
  bool isSigned = false;
  /// Signed by Apple itself, as runtime libraries and the stubs of watch apps are.
  bool isApplesOwn = false;
  std::string teamIdentifier;
  foundation::Dictionary entitlements;
  /// True when any slice is encrypted, as downloads from the store are.
  bool isEncrypted = false;
};

/// Of a bundle or a Mach-O file, from the slice that `signingInputs` reads too. Fails with where
/// and what when the executable or its signature cannot be read.
foundation::Result<SignatureFacts> signatureFacts(const std::filesystem::path& code,
                                                  RootTest isAppleRoot = toolchain::isAppleRoot);

}  // namespace toolchain
