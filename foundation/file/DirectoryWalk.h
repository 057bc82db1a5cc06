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
/// not have been listed before; `path` is for error texts. If opening `folder` has just failed,
/// errno gives the error.
Result<std::vector<DirectoryEntry>> entriesOf(const FileDescriptor& folder,
                                              const std::string& path);

/// Asked about every entry of a walk; `folder` is the open folder that contains it. A folder is
/// entered if the answer is true; an error ends the walk.
using DirectoryVisit = std::function<Result<bool>(const DirectoryEntry& entry, int folder)>;

/// What a walk does about a folder below its root that cannot be read.
enum class Unreadable { failed, skipped };

/// Visits everything below a folder: a folder before its own entries, all entries of one folder in
/// a row, otherwise in no particular order. `links` is for the path of the root: below it no link
/// is followed, even if one replaces a folder during the walk. Depth costs no descriptors.
///
/// Fails with the path of a folder that cannot be read, or with the visitor's error.
Result<> walkDirectory(const std::filesystem::path& root, Links links, const DirectoryVisit& visit,
                       Unreadable unreadable = Unreadable::failed);
/// The same with an open root; see `entriesOf`.
Result<> walkDirectory(const FileDescriptor& root, const std::string& path,
                       const DirectoryVisit& visit, Unreadable unreadable = Unreadable::failed);

}  // namespace foundation
