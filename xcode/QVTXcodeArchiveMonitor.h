#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "foundation/base/URL.h"
#include "foundation/base/Value.h"
#include "foundation/file/FileEventSource.h"
#include "foundation/queue/DispatchQueue.h"
#include "xcode/QVTXcodeArchive.h"

/// Posted to the default notification center, on the main queue, a second after an archive or a
/// folder of archives appeared; the object is the path of the folder that grew.
inline constexpr std::string_view QVTXcodeArchiveChangedNotification =
    "QVTXcodeArchiveChangedNotification";

/// Watches the folder where Xcode keeps archives, and its most recently modified day folder, for
/// new entries. Additions in quick succession may share a notification; removals post none. A
/// missing folder is not watched: when the location is deleted and created again, a new monitor is
/// needed.
///
/// Thread-safe, also on the monitor's own queue; operations wait for that queue.
class QVTXcodeArchiveMonitor {
 public:
  using Source = std::shared_ptr<foundation::FileEventSource>;

  /// Starts watching at once.
  QVTXcodeArchiveMonitor();
  static std::shared_ptr<QVTXcodeArchiveMonitor> init();
  QVTXcodeArchiveMonitor(const QVTXcodeArchiveMonitor&) = delete;
  QVTXcodeArchiveMonitor& operator=(const QVTXcodeArchiveMonitor&) = delete;
  ~QVTXcodeArchiveMonitor();

  /// All readable archives two levels below the location. An app without identifier has an empty
  /// one. This and the next function throw where `QVTXcodeArchive::initWithURL` does.
  static std::set<std::shared_ptr<QVTXcodeArchive>> allArchives();
  /// The newest of them with this identifier, ignoring case; empty when there is none.
  static std::shared_ptr<QVTXcodeArchive> latestArchiveMatchingBundleIdentifier(
      std::string_view identifier);

  [[nodiscard]] const foundation::DispatchQueue& queue() const { return queue_; }
  /// Empty when the archives location is not watched.
  [[nodiscard]] Source archiveSource() const;
  /// Empty when there is no day folder to watch.
  [[nodiscard]] Source currentArchiveSource() const;
  /// Visible entries when last counted.
  [[nodiscard]] std::size_t archivesDirCount() const;
  [[nodiscard]] std::size_t latestArchivesDirCount() const;

  /// Starts over with the current location and its newest folder.
  void observeArchives();
  void observeLatestArchivesAtPath(const std::optional<std::string>& path);
  /// Calls the handler on the queue after writes; empty, with a line in the system log, when the
  /// path cannot be opened.
  [[nodiscard]] Source createDispatchSourceForPath(const std::optional<std::string>& path,
                                                   std::function<void()> handler) const;
  void stopArchiveSource();
  void stopCurrentArchiveSource();

  /// The path of the most recently modified visible entry; absent when there is none.
  static std::optional<std::string> latestPathInDirectory(const std::optional<std::string>& path);
  /// `Date::min()`, with a line in the system log, when it cannot be read.
  static foundation::Date modifiedDateForObject(const foundation::URL& url);
  /// Visible entries; 0, with a line in the system log, when they cannot be listed.
  static std::size_t contentsCountAtPath(const std::optional<std::string>& path);
  static void postNotificationForArchiveDirectory(const std::string& path);

 private:
  void archivesChanged(const std::string& location);
  void currentArchivesChanged(const std::string& folder);

  foundation::DispatchQueue queue_;
  Source archiveSource_;
  Source currentArchiveSource_;
  std::size_t archivesDirCount_ = 0;
  std::size_t latestArchivesDirCount_ = 0;
};
