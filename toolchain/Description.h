#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "toolchain/Image.h"

namespace toolchain {

struct DescribeOptions {
  /// Bundle or Mach-O file; messages name it as it stands here.
  std::filesystem::path code;
  /// 0: the executable's path alone; up to 3 adds more lines.
  int verbosity = 0;
  /// Adds the requirements' text.
  bool requirements = false;
};

/// What a signature says, in lines for people; nothing is verified. Fails with
/// "code object is not signed at all" for unsigned code.
Result<std::vector<std::string>> describe(const DescribeOptions& options);

}  // namespace toolchain
