#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"

/// What a signature says. Nothing here is verified. All fail with a reason that does not name the
/// code: "code object is not signed at all" when its chosen slice is not; of a universal file the
/// arm64 slice is chosen, else the first.
namespace toolchain {

struct DescribeOptions {
  /// Bundle or Mach-O file.
  std::filesystem::path code;
  /// 0: the executable's path alone; up to 3 adds more lines.
  int verbosity = 0;
};

/// Lines for people.
Result<std::vector<std::string>> describe(const DescribeOptions& options);

/// "designated => …", one line for each requirement; an implicit one begins with "# ".
Result<std::vector<std::string>> describeRequirements(const std::filesystem::path& code);

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
/// Unsigned code is no failure here.
Result<SigningInputs> signingInputs(const std::filesystem::path& code);

}  // namespace toolchain
