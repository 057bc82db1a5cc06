#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "foundation/host/FileOpening.h"

/// Files and folders. Every error contains the path and the system's error text.
namespace foundation::FileManager {

/// Follows links: a dangling link does not exist.
bool fileExistsAtPath(const std::filesystem::path& path);
/// True only for a folder (or a link to one).
bool isDirectoryAtPath(const std::filesystem::path& path);
/// The same, but false for a link.
bool isRealDirectory(const std::filesystem::path& path);

/// True when the item exists and, with all links resolved, is the folder or lies in it.
bool isItemInsideDirectory(const std::filesystem::path& item, const std::filesystem::path& folder);
/// The same; an item that exists but lies elsewhere is reported once in the system log.
bool isUsableInsideDirectory(const std::filesystem::path& item,
                             const std::filesystem::path& folder);

/// The whole file in memory. Fails for anything other than a regular file, and when memory runs
/// out.
Result<Data> contentsOfFile(const std::filesystem::path& path, Links links = Links::followed);

/// Most bytes that `contentsOfFileOrPipe` reads from a pipe or device: 1 MiB.
inline constexpr std::size_t kMostPiped = std::size_t{1} << 20;
/// The same for a file that the user names, which may also be a pipe or device (`/dev/stdin`). That
/// is read to its end, however long its writer takes; more than `kMostPiped` bytes are an error.
/// Throws `Interrupted` when the run is interrupted during the wait.
Result<Data> contentsOfFileOrPipe(const std::filesystem::path& path);

/// Makes the folder and every missing parent. An existing folder is a success, an existing file an
/// error.
Result<> createDirectoryWithIntermediates(const std::filesystem::path& path);

/// Copies a file, a link (as a link) or a whole folder with permissions, links, access and
/// modification times, sharing blocks where the file system can. An existing target is an error,
/// and so is a pipe, socket or device inside the folder. After a failure, what was copied so far
/// stays. Throws `Interrupted` before an entry when the run has been interrupted.
Result<> copyItemAtPath(const std::filesystem::path& source, const std::filesystem::path& target);

/// Removes the item itself, never what a link points to. Folders are removed with their contents,
/// including read-only ones that this user owns. A missing item is an error.
Result<> removeItemAtPath(const std::filesystem::path& path);
/// The same for an item of an open folder.
Result<> removeItemInFolder(int folder, const std::string& name);

/// Names of the entries, unsorted, without "." and "..".
Result<std::vector<std::string>> contentsOfDirectoryAtPath(const std::filesystem::path& path);
/// The same without names that begin with a dot.
Result<std::vector<std::string>> visibleContentsOfDirectoryAtPath(
    const std::filesystem::path& path);
/// Relative paths of everything below the folder, a folder before its entries. Links are not
/// followed; the contents of unreadable folders are left out.
Result<std::vector<std::string>> subpathsOfDirectoryAtPath(const std::filesystem::path& path);

/// The birth time if the file system records one, else the modification time. Absent when nothing
/// is at the path.
std::optional<Date> creationDateOfItemAtPath(const std::filesystem::path& path);
std::optional<Date> modificationDateOfItemAtPath(const std::filesystem::path& path);

/// Writes a new file next to the old one and renames it over that; keeps the old one's permissions.
Result<> writeAtomically(Bytes bytes, const std::filesystem::path& path);

}  // namespace foundation::FileManager
