#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/base/URL.h"
#include "foundation/file/FileEventSource.h"

/// Code -1: `unzip` failed. The user info is `QVTTask::descriptionOfRun` with "archivePath" and
/// "temporaryPath".
inline constexpr std::string_view QVTFileSystemUtilsErrorDomain = "QVTFileSystemUtilsErrorDomain";

/// Finds command-line tools, unpacks archives, copies apps to temporary folders and handles files.
/// Everything blocks the caller. Throws `foundation::Exception` when a tool cannot be launched, and
/// when the temporary folder cannot be used by an operation without an error slot.
class QVTFileSystemUtils {
 public:
  QVTFileSystemUtils() = delete;

  /// Where `which` finds the tool: empty if it is not installed, absent only if the output is not
  /// UTF-8.
  static std::optional<std::string> pathForShellTool(const std::string& name);
  /// The same for a tool that is about to be launched; the system log names a missing one once.
  static std::optional<std::string> pathForRequiredShellTool(const std::string& name);
  /// Where `xcrun --find` finds the tool: empty if there is no such tool, or no `xcrun`, which the
  /// system log says once; absent if the output is not UTF-8.
  static std::optional<std::string> pathForXcTool(const std::string& name);

  /// The folder for copies of apps, which need not exist.
  static std::string appTemporaryStoragePath();

  /// Copies (never moves) the app into a new folder below `appTemporaryStoragePath` and returns the
  /// copy's path. A link is followed.
  static std::optional<std::string> moveAppToTempPath(const std::string& path,
                                                      foundation::ErrorSlot error = nullptr);
  /// Copies the item into the folder, replacing one of the same name. False on any failure, and if
  /// an argument is absent.
  static bool copyItemToDirectory(const std::optional<std::string>& item,
                                  const std::optional<std::string>& directory);
  /// True if nothing exists at the path afterwards.
  static bool removeItemAtPathIfPresent(const std::string& path);
  /// True also for a file that is missing or cannot be read.
  static bool isZeroByteFile(const std::string& path);

  /// `inflateArchive` (Inflation.h) into the temporary directory. Returns the archive's folder,
  /// ending in "/", which is for the caller to remove.
  static std::optional<std::string> inflateToTemporaryPathArchive(
      const std::string& archive, foundation::ErrorSlot error = nullptr);
  /// Names of the folder's entries that end in ".app", unsorted.
  static std::optional<std::vector<std::string>> findPathsToAppsInDirectory(
      const std::string& directory, foundation::ErrorSlot error = nullptr);

  /// The folder's visible entries, oldest first, as file URLs. `path` is the text of a URL: percent
  /// escapes are decoded, and characters that a URL cannot contain (a space, an umlaut) are errors.
  static std::optional<std::vector<foundation::URL>> dateSortedContentsOfPath(
      const std::string& path, foundation::ErrorSlot error = nullptr);

  /// Calls the handler on the global queue after every write to the file or folder, until the
  /// source is destroyed or cancelled. Empty if the path cannot be watched.
  static std::shared_ptr<foundation::FileEventSource> createDispatchSourceObservePathChangeHandler(
      const std::string& path, std::function<void()> handler);
  /// Watches the file's folder and calls the block after every write to it while the file exists.
  static std::shared_ptr<foundation::FileEventSource> createDispatchSourceFileAtPathIsAvailable(
      const std::string& filePath, std::function<void()> block);
};
