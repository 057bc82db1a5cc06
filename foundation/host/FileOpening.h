#pragma once

#include <filesystem>

#include "foundation/base/Handle.h"

namespace foundation {

enum class Links {
  followed,
  /// A link anywhere in the path is an error: for paths whose links were resolved before, in
  /// folders that another user may change meanwhile.
  refused,
};

/// open(2) of something that is there; closed on exec. Empty with errno set on failure, which is
/// ELOOP for a link that is refused.
FileDescriptor openFile(const std::filesystem::path& path, int flags,
                        Links links = Links::followed);

/// The same for something below an open folder, without following links.
FileDescriptor openFileIn(int folder, const std::filesystem::path& path, int flags);

/// Opens a folder for calls that name items in it; it need not be readable.
FileDescriptor openFolder(const std::filesystem::path& path, Links links = Links::followed);

}  // namespace foundation
