#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"

namespace toolchain::codesign {

enum class Operation { sign, verify, display, help };

struct Options {
  Operation operation = Operation::help;
  /// Counts `-v` and `--verbose`, but for one that asks for verification.
  int verbosity = 0;
  bool force = false;
  bool deep = false;
  /// Signing: see `SignOptions::identity`.
  std::string identity;
  std::optional<std::string> keychain;
  /// Signing: the file to read. Display: where to write, a leading ":" asks for the bare property
  /// list, "-" is standard output.
  std::optional<std::string> entitlements;
  /// Display: where to write the rules.
  std::optional<std::string> resourceRules;
  /// Display: where to write the requirements, "-" is standard output.
  std::optional<std::string> requirements;
  std::vector<std::string> operands;
};

/// Reads a command line in any order: letters may be combined (`-dvv`), a value may follow its
/// letter (`-r-`), its long name with "=" or as the next argument; "--" ends the options; the last
/// of several values counts. Fails with one line that names the argument at fault.
foundation::Result<Options> parseOptions(const std::vector<std::string>& arguments);

/// What `--help` prints.
std::string_view usage();

}  // namespace toolchain::codesign
