#pragma once

#include <filesystem>
#include <string>

#include "toolchain/common/Messages.h"

namespace toolchain {

/// What to sign the same code with again. Code that is unsigned or signed only by the linker has
/// the default rules, and the entitlements that its embedded profile grants, made exact for this
/// code (none without a profile).
struct SigningInputs {
  bool isSigned = false;
  /// Property list with the dictionaries "rules" and "rules2".
  std::string resourceRules;
  /// Property list; an empty dictionary for code without entitlements.
  std::string entitlements;
};

/// Of a bundle or a Mach-O file, read but not verified; of a universal file the arm64 slice's, else
/// the first one's. Unsigned code is not an error. Errors do not name the code.
Result<SigningInputs> signingInputs(const std::filesystem::path& code);

}  // namespace toolchain
