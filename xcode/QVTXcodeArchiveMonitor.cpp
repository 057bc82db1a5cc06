#include "xcode/QVTXcodeArchiveMonitor.h"

#include <chrono>
#include <utility>
#include <vector>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/SystemLog.h"
#include "foundation/queue/NotificationCenter.h"

using foundation::DispatchQueue;
using foundation::FileEventSource;
using foundation::NotificationCenter;
namespace FileManager = foundation::FileManager;

namespace {

using Archive = std::shared_ptr<QVTXcodeArchive>;

constexpr std::chrono::seconds kNotificationDelay{1};

void stop(std::shared_ptr<FileEventSource>& source) {
  if (source) source->cancel();
  source.reset();
}

/// Full paths; none when the folder cannot be listed.
std::vector<std::string> visibleEntries(const std::string& path) {
  std::vector<std::string> entries;
  const auto names = FileManager::visibleContentsOfDirectoryAtPath(path);
  if (!names) return entries;
  for (const std::string& name : *names) {
    entries.push_back(foundation::appendingPathComponent(path, name));
  }
  return entries;
}

template <class T>
T readOn(const DispatchQueue& queue, const T& member) {
  T copy{};
  queue.syncOrInline([&] { copy = member; });
  return copy;
}

}  // namespace

QVTXcodeArchiveMonitor::QVTXcodeArchiveMonitor()
    : queue_(DispatchQueue::serial("com.quorvantile.XcodeArchiveMonitor")) {
  observeArchives();
}

std::shared_ptr<QVTXcodeArchiveMonitor> QVTXcodeArchiveMonitor::init() {
  return std::make_shared<QVTXcodeArchiveMonitor>();
}

/// Handlers refer to this object. On the queue none is running, and none starts once its source is
/// cancelled.
QVTXcodeArchiveMonitor::~QVTXcodeArchiveMonitor() {
  queue_.syncOrInline([this] {
    stop(archiveSource_);
    stop(currentArchiveSource_);
  });
}

QVTXcodeArchiveMonitor::Source QVTXcodeArchiveMonitor::archiveSource() const {
  return readOn(queue_, archiveSource_);
}

QVTXcodeArchiveMonitor::Source QVTXcodeArchiveMonitor::currentArchiveSource() const {
  return readOn(queue_, currentArchiveSource_);
}

std::size_t QVTXcodeArchiveMonitor::archivesDirCount() const {
  return readOn(queue_, archivesDirCount_);
}

std::size_t QVTXcodeArchiveMonitor::latestArchivesDirCount() const {
  return readOn(queue_, latestArchivesDirCount_);
}

std::set<Archive> QVTXcodeArchiveMonitor::allArchives() {
  std::set<Archive> archives;
  const auto location = QVTXcodeArchive::currentArchiveLocation();
  if (!location) return archives;
  for (const std::string& day : visibleEntries(*location)) {
    for (const std::string& path : visibleEntries(day)) {
      const auto archive = QVTXcodeArchive::initWithURL(foundation::URL::fileURLWithPath(path));
      if (archive && archive->bundleIdentifier()) archives.insert(archive);
    }
  }
  return archives;
}

Archive QVTXcodeArchiveMonitor::latestArchiveMatchingBundleIdentifier(std::string_view identifier) {
  const std::string wanted = foundation::lowercased(identifier);
  Archive latest;
  for (const Archive& archive : allArchives()) {
    if (foundation::lowercased(*archive->bundleIdentifier()) != wanted) continue;
    if (!latest || archive->creationDate() >= latest->creationDate()) latest = archive;
  }
  return latest;
}

void QVTXcodeArchiveMonitor::observeArchives() {
  queue_.syncOrInline([this] {
    const auto location = QVTXcodeArchive::currentArchiveLocation();
    archivesDirCount_ = contentsCountAtPath(location);
    stop(archiveSource_);
    observeLatestArchivesAtPath(location);
    archiveSource_ = createDispatchSourceForPath(
        location, [this, path = location.value_or("")] { archivesChanged(path); });
  });
}

void QVTXcodeArchiveMonitor::archivesChanged(const std::string& location) {
  const std::size_t before = std::exchange(archivesDirCount_, contentsCountAtPath(location));
  if (archivesDirCount_ <= before) return;
  observeLatestArchivesAtPath(location);
  postNotificationForArchiveDirectory(location);
}

void QVTXcodeArchiveMonitor::observeLatestArchivesAtPath(const std::optional<std::string>& path) {
  queue_.syncOrInline([&] {
    const auto folder = latestPathInDirectory(path);
    latestArchivesDirCount_ = contentsCountAtPath(folder);
    stop(currentArchiveSource_);
    currentArchiveSource_ = createDispatchSourceForPath(
        folder, [this, current = folder.value_or("")] { currentArchivesChanged(current); });
  });
}

void QVTXcodeArchiveMonitor::currentArchivesChanged(const std::string& folder) {
  const std::size_t before = std::exchange(latestArchivesDirCount_, contentsCountAtPath(folder));
  if (latestArchivesDirCount_ > before) postNotificationForArchiveDirectory(folder);
}

QVTXcodeArchiveMonitor::Source QVTXcodeArchiveMonitor::createDispatchSourceForPath(
    const std::optional<std::string>& path, std::function<void()> handler) const {
  Source source = path ? FileEventSource::watchWrites(*path, queue_, std::move(handler)) : nullptr;
  if (!source) foundation::systemLog("Unable to find path for archive monitoring");
  return source;
}

void QVTXcodeArchiveMonitor::stopArchiveSource() {
  queue_.syncOrInline([this] { stop(archiveSource_); });
}

void QVTXcodeArchiveMonitor::stopCurrentArchiveSource() {
  queue_.syncOrInline([this] { stop(currentArchiveSource_); });
}

std::optional<std::string> QVTXcodeArchiveMonitor::latestPathInDirectory(
    const std::optional<std::string>& path) {
  if (!path) return std::nullopt;
  std::optional<std::pair<foundation::Date, std::string>> latest;
  for (std::string& entry : visibleEntries(*path)) {
    const auto date = modifiedDateForObject(foundation::URL::fileURLWithPath(entry));
    if (!latest || date >= latest->first) latest.emplace(date, std::move(entry));
  }
  if (!latest) return std::nullopt;
  return std::move(latest->second);
}

foundation::Date QVTXcodeArchiveMonitor::modifiedDateForObject(const foundation::URL& url) {
  const auto date = FileManager::modificationDateOfItemAtPath(url.path());
  if (date) return *date;
  foundation::systemLog("Unable to read modification date for file %@", url.absoluteString());
  return foundation::Date::min();
}

std::size_t QVTXcodeArchiveMonitor::contentsCountAtPath(const std::optional<std::string>& path) {
  if (!path) return 0;
  const auto names = FileManager::visibleContentsOfDirectoryAtPath(*path);
  if (names) return names->size();
  foundation::systemLog("Unable to read contents of directory %@ %@", *path, names.error());
  return 0;
}

void QVTXcodeArchiveMonitor::postNotificationForArchiveDirectory(const std::string& path) {
  DispatchQueue::main().asyncAfter(kNotificationDelay, [path] {
    NotificationCenter::defaultCenter().post(QVTXcodeArchiveChangedNotification, path);
  });
}
