#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "toolchain/image/MachOFile.h"

namespace toolchain {

struct VerifyOptions {
  /// Bundle or Mach-O file; messages name it exactly so.
  std::filesystem::path code;
  /// Verifies nested code in full, not only against the seal.
  bool deep = false;
};

struct Verdict {
  /// 0 valid; 1 not valid; 3 valid, but the designated requirement is not met.
  int status = 0;
  /// Lines about the code as a whole, without newlines.
  std::vector<std::string> statements;
  /// Lines about single files: "file added: P", "file modified: P", "file missing: P".
  std::vector<std::string> files;
};

/// Recomputes every hash and checks every claim of the signature. What cannot be read does not
/// verify.
Verdict verify(const VerifyOptions& options);

}  // namespace toolchain
