#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/base/URL.h"
#include "foundation/file/FileEventSource.h"

/// Domain of `QVTFileSystemUtils`'s own errors. Code -1: `unzip` failed; the user info holds
/// "command", "arguments", "status", "stderr", "stdout", "archivePath" and "temporaryPath".
inline constexpr std::string_view QVTFileSystemUtilsErrorDomain = "QVTFileSystemUtilsErrorDomain";

/// Finds command-line tools, owns the temporary folders, unpacks archives and does small jobs with
/// files. All of it runs on the caller's thread. A tool that cannot be launched raises
/// `foundation::Exception`, and so does a temporary folder that cannot be used, where there is no
/// error slot.
class QVTFileSystemUtils {
 public:
  QVTFileSystemUtils() = delete;

  /// Where `which` finds the tool: empty text for a tool that is not installed; absent only when
  /// the answer is no text.
  static std::optional<std::string> pathForShellTool(const std::string& name);
  /// The same for a tool that is about to be launched: one that is not in PATH is named in the
  /// system log, once.
  static std::optional<std::string> pathForRequiredShellTool(const std::string& name);
  /// Where `xcrun --find` finds the tool, with the same two kinds of failure: absent when the
  /// answer is no text, empty when there is no `xcrun`, which the system log then tells once, or no
  /// such tool.
  static std::optional<std::string> pathForXcTool(const std::string& name);

  /// The folder for copies of apps; not created.
  static std::string appTemporaryStoragePath();

  /// Copies (never moves) the app, or what a link in its place points to, into a new folder below
  /// `appTemporaryStoragePath` and returns the copy's path; absent with the error on failure.
  static std::optional<std::string> moveAppToTempPath(const std::string& path,
                                                      foundation::ErrorSlot error = nullptr);
  /// Puts a copy of the item into the folder, in place of an item of the same name. False on any
  /// failure, and when an argument is absent.
  static bool copyItemToDirectory(const std::optional<std::string>& item,
                                  const std::optional<std::string>& directory);
  /// True when nothing exists at the path, or when it could be removed.
  static bool removeItemAtPathIfPresent(const std::string& path);
  /// True for an empty file, and for one that is missing or cannot be read.
  static bool isZeroByteFile(const std::string& path);

  /// `inflateArchive` into the temporary directory (see Inflation.h). Returns the archive's folder,
  /// ending in "/"; absent with the error on failure. The folder is not removed.
  static std::optional<std::string> inflateToTemporaryPathArchive(
      const std::string& archive, foundation::ErrorSlot error = nullptr);
  /// Names of the folder's entries that end in ".app", unsorted; absent with the error when it
  /// cannot be listed.
  static std::optional<std::vector<std::string>> findPathsToAppsInDirectory(
      const std::string& directory, foundation::ErrorSlot error = nullptr);

  /// The folder's visible entries, the oldest first, as file URLs; absent with the error when it
  /// cannot be listed. `path` is read as the text of a URL: percent escapes are decoded, and a text
  /// that a URL cannot hold (a space, an umlaut) is an error.
  static std::optional<std::vector<foundation::URL>> dateSortedContentsOfPath(
      const std::string& path, foundation::ErrorSlot error = nullptr);

  /// Calls the handler on the global queue after every write to the file or folder, as long as the
  /// source lives and is not cancelled; empty when the path cannot be watched.
  static std::shared_ptr<foundation::FileEventSource> createDispatchSourceObservePathChangeHandler(
      const std::string& path, std::function<void()> handler);
  /// The same for the file's folder, but calls the block only while there is a file at the path:
  /// every time, not only the first.
  static std::shared_ptr<foundation::FileEventSource> createDispatchSourceFileAtPathIsAvailable(
      const std::string& filePath, std::function<void()> block);
};
