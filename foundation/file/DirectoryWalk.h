#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/host/FileOpening.h"

namespace foundation {

/// An item found in a folder.
struct DirectoryEntry {
  enum class Kind { file, link, folder, other };
  /// Relative to the folder that is listed or walked.
  std::string path;
  Kind kind = Kind::file;

  [[nodiscard]] const char* name() const { return path.c_str() + (path.rfind('/') + 1); }
};

/// The entries of a folder, unsorted, without "." and "..". `folder` must be open for reading and
/// must not have been listed before; `path` is for error texts. If `folder` is empty because
/// opening it has just failed, the error is that of errno.
Result<std::vector<DirectoryEntry>> entriesOf(const FileDescriptor& folder,
                                              const std::string& path);

/// Asked about every entry of a walk; `folder` is the open folder that contains it. A folder is
/// entered if the answer is true; an error ends the walk.
using DirectoryVisit = std::function<Result<bool>(const DirectoryEntry& entry, int folder)>;

/// What a walk does when it cannot read a folder below its root.
enum class Unreadable { failed, skipped };

/// Visits everything below a folder: a folder before its entries, and all entries of one folder in
/// a row, otherwise in no particular order. `links` applies to the path of the root; below it no
/// link is followed, even if one replaces a folder during the walk. The number of open descriptors
/// does not grow with depth.
///
/// Fails with the path of the unreadable folder, or with the visitor's error.
Result<> walkDirectory(const std::filesystem::path& root, Links links, const DirectoryVisit& visit,
                       Unreadable unreadable = Unreadable::failed);
/// The same with an open root; see `entriesOf`.
Result<> walkDirectory(const FileDescriptor& root, const std::string& path,
                       const DirectoryVisit& visit, Unreadable unreadable = Unreadable::failed);

}  // namespace foundation
