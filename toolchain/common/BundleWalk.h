#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "toolchain/common/Messages.h"

namespace toolchain {

/// One entry below a folder.
struct FolderEntry {
  enum class Kind { file, link, folder, other };
  /// Relative to the folder that is walked.
  std::string path;
  Kind kind = Kind::file;
};

/// Lists everything below `root`, in no particular order; links are not followed. `enter` is asked
/// about every entry before it counts: false leaves it out, with all that is below it. Fails with
/// the path of a folder that cannot be read.
Result<std::vector<FolderEntry>> walkFolder(const std::filesystem::path& root,
                                            const std::function<bool(const FolderEntry&)>& enter);

}  // namespace toolchain
