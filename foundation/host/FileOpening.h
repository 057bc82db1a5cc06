#pragma once

#include <filesystem>

#include "foundation/base/Handle.h"

namespace foundation {

enum class Links {
  followed,
  /// A link anywhere in the path is an error: for paths whose links are already resolved, in
  /// folders that another user may change meanwhile.
  refused,
};

/// open(2) of an existing item, close-on-exec. Empty with errno set on failure, which is ELOOP for
/// a refused link.
FileDescriptor openFile(const std::filesystem::path& path, int flags,
                        Links links = Links::followed);

/// The same for an item below an open folder, without following links.
FileDescriptor openFileIn(int folder, const std::filesystem::path& path, int flags);

/// Opens a folder for use with openat(2) and the like; it need not be readable.
FileDescriptor openFolder(const std::filesystem::path& path, Links links = Links::followed);

}  // namespace foundation
