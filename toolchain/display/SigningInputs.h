#pragma once

#include <filesystem>
#include <string>

#include "toolchain/common/Messages.h"

namespace toolchain {

/// What a new signature of the same code can be made from. Code that carries no signature, or one
/// that only the linker made, says nothing about it: it has the default rules, and what its
/// embedded profile grants, made exact for this code (nothing without a profile).
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
