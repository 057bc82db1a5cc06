#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "foundation/host/FileOpening.h"

/// Files and folders. Every error names the path and carries the system's text.
namespace foundation::FileManager {

/// Follows links: a dangling link does not exist.
bool fileExistsAtPath(const std::filesystem::path& path);
/// True only for a folder (or a link to one).
bool isDirectoryAtPath(const std::filesystem::path& path);
/// The same, but false for a link.
bool isRealDirectory(const std::filesystem::path& path);

/// True when there is an item and, every link on the way followed, it is the folder or lies in it.
bool isItemInsideDirectory(const std::filesystem::path& item, const std::filesystem::path& folder);
/// The same; the system log tells once of an item that there is, but elsewhere.
bool isUsableInsideDirectory(const std::filesystem::path& item,
                             const std::filesystem::path& folder);

/// The whole file in memory. Fails for anything but a regular file (a folder, a pipe, a device),
/// and when memory runs out.
Result<Data> contentsOfFile(const std::filesystem::path& path, Links links = Links::followed);

/// Most bytes that a pipe or device may hold for `contentsOfFileOrPipe`: 1 MiB.
inline constexpr std::size_t kMostPiped = std::size_t{1} << 20;
/// For a file that the user names: the same, but a pipe or device (`/dev/stdin`) is read to its
/// end, however long it takes its writer; one with more than `kMostPiped` bytes fails. An
/// interruption of the run ends the wait, with `Interrupted`.
Result<Data> contentsOfFileOrPipe(const std::filesystem::path& path);

/// Makes the folder and every missing parent; an existing folder is success, an existing file is
/// not.
Result<> createDirectoryWithIntermediates(const std::filesystem::path& path);

/// Copies a file, a link (as a link) or a whole folder with permissions, links and modification
/// times; an existing target is an error. Uses the file system's own cheap copy where it has one. A
/// pipe, socket or device inside is an error. After a failure what was copied so far stays. Every
/// entry is a check point of an interrupted run.
Result<> copyItemAtPath(const std::filesystem::path& source, const std::filesystem::path& target);

/// Removes the item itself, never what a link points to; folders with all they hold, including
/// those without write permission that this user owns. Nothing at the path is an error.
Result<> removeItemAtPath(const std::filesystem::path& path);
/// The same for an item of an open folder.
Result<> removeItemInFolder(int folder, const std::string& name);

/// Names of the entries, unsorted, without "." and "..".
Result<std::vector<std::string>> contentsOfDirectoryAtPath(const std::filesystem::path& path);
/// The same without names that begin with a dot.
Result<std::vector<std::string>> visibleContentsOfDirectoryAtPath(
    const std::filesystem::path& path);
/// Relative paths of everything below the folder, a folder before its entries; links are not
/// followed. Entries that cannot be read are left out.
Result<std::vector<std::string>> subpathsOfDirectoryAtPath(const std::filesystem::path& path);

/// The birth time where the file system keeps one, else the modification time; absent when there is
/// nothing at the path.
std::optional<Date> creationDateOfItemAtPath(const std::filesystem::path& path);
std::optional<Date> modificationDateOfItemAtPath(const std::filesystem::path& path);

/// Writes beside the file and renames it over the file; an existing file's permissions are kept.
Result<> writeAtomically(Bytes bytes, const std::filesystem::path& path);

}  // namespace foundation::FileManager
