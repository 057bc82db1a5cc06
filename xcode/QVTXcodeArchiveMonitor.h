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

/// Posted on the default notification center, on the main queue, a second after an archive or a
/// folder of archives appeared; its object is the path of the folder that grew.
inline constexpr std::string_view QVTXcodeArchiveChangedNotification =
    "QVTXcodeArchiveChangedNotification";

/// Watches the folder where Xcode keeps archives, and in it the folder of the day that was changed
/// last, for new entries. Additions that come together may be announced together; removals are
/// silent. A folder that is not there is not watched: a location that was deleted and made again
/// needs a new monitor.
///
/// Counts and sources belong to the monitor's queue. Every operation is safe from any thread, that
/// queue included; those that start, stop or ask for them wait for the queue.
class QVTXcodeArchiveMonitor {
 public:
  using Source = std::shared_ptr<foundation::FileEventSource>;

  /// Starts watching at once.
  QVTXcodeArchiveMonitor();
  static std::shared_ptr<QVTXcodeArchiveMonitor> init();
  QVTXcodeArchiveMonitor(const QVTXcodeArchiveMonitor&) = delete;
  QVTXcodeArchiveMonitor& operator=(const QVTXcodeArchiveMonitor&) = delete;
  ~QVTXcodeArchiveMonitor();

  /// All archives two levels below the location that can be read; folders that cannot be listed
  /// have none. The identifier of an app that states none is the empty text. A
  /// `foundation::Exception` where `QVTXcodeArchive::initWithURL` throws one; so does the next.
  static std::set<std::shared_ptr<QVTXcodeArchive>> allArchives();
  /// The newest of them with this identifier, compared without regard to case; empty when there is
  /// none.
  static std::shared_ptr<QVTXcodeArchive> latestArchiveMatchingBundleIdentifier(
      std::string_view identifier);

  [[nodiscard]] const foundation::DispatchQueue& queue() const { return queue_; }
  /// Empty when the archives location is not watched.
  [[nodiscard]] Source archiveSource() const;
  /// Empty when there is no folder of a day to watch.
  [[nodiscard]] Source currentArchiveSource() const;
  /// Visible entries at the last look.
  [[nodiscard]] std::size_t archivesDirCount() const;
  [[nodiscard]] std::size_t latestArchivesDirCount() const;

  /// Watches the location as it is now, and the newest folder in it, instead of what was watched.
  void observeArchives();
  void observeLatestArchivesAtPath(const std::optional<std::string>& path);
  /// Calls the handler on the queue after writes; empty, with a line in the system log, when
  /// nothing can be opened there.
  [[nodiscard]] Source createDispatchSourceForPath(const std::optional<std::string>& path,
                                                   std::function<void()> handler) const;
  void stopArchiveSource();
  void stopCurrentArchiveSource();

  /// The visible entry that was modified last; absent when there is none.
  static std::optional<std::string> latestPathInDirectory(const std::optional<std::string>& path);
  /// The most distant past, with a line in the system log, when it cannot be read.
  static foundation::Date modifiedDateForObject(const foundation::URL& url);
  /// Number of visible entries; 0, with a line in the system log, when they cannot be listed.
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
