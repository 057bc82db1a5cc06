#pragma once

#include <filesystem>
#include <string>

#include "foundation/Result.h"
#include "foundation/Value.h"
#include "toolchain/Requirement.h"

namespace inspect {

/// What a piece of code carries, read and not verified.
struct SignatureFacts {
  bool isSigned = false;
  /// By a certificate of Apple's own, as run-time libraries and the stubs of watch apps are.
  bool isApplesOwn = false;
  /// Empty: none named.
  std::string teamIdentifier;
  /// Empty: none.
  foundation::Dictionary entitlements;
  /// True when any slice is encrypted, as downloads from the store are.
  bool isEncrypted = false;
};

/// Of a bundle or a Mach-O file; its first slice's signature speaks for all. Fails with where and
/// what when the executable or its signature cannot be read.
foundation::Result<SignatureFacts> signatureFacts(
    const std::filesystem::path& code, toolchain::RootTest isAppleRoot = toolchain::isAppleRoot);

/// True when a profile that grants `pattern` lets an app have `value`: the same value, a text that
/// a trailing "*" covers, a list of which every element is covered by one of the pattern's, a
/// boolean that asks for no more.
bool grants(const foundation::Value& pattern, const foundation::Value& value);

}  // namespace inspect
