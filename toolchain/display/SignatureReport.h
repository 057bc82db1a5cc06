#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "toolchain/common/Messages.h"

/// What a signature says, in lines for people. Nothing here is verified. Of a universal file the
/// arm64 slice is reported, else the first. Both fail with a reason that does not name the code:
/// "code object is not signed at all" when that slice is not.
namespace toolchain {

struct ReportOptions {
  /// Bundle or Mach-O file.
  std::filesystem::path code;
  /// 0: the executable's path alone; up to 3 adds more lines.
  int verbosity = 0;
};

Result<std::vector<std::string>> signatureReport(const ReportOptions& options);

/// "designated => …", one line for each requirement; an implicit one begins with "# ".
Result<std::vector<std::string>> requirementsReport(const std::filesystem::path& code);

}  // namespace toolchain
