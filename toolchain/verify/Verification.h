#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "toolchain/image/MachOFile.h"

namespace toolchain {

struct VerifyOptions {
  /// Bundle or Mach-O file; messages name it as it stands here.
  std::filesystem::path code;
  /// Nested code is verified in full, not only against the seal.
  bool deep = false;
};

/// Outcome of a verification.
struct Verdict {
  /// 0 sound; 1 not; 3 sound, but the designated requirement is not met.
  int status = 0;
  /// Lines about the code as a whole, without newlines.
  std::vector<std::string> statements;
  /// Lines about single files: "file added: P", "file modified: P", "file missing: P".
  std::vector<std::string> files;
};

/// Recomputes everything that the signature says and trusts nothing.
Verdict verify(const VerifyOptions& options);

}  // namespace toolchain
