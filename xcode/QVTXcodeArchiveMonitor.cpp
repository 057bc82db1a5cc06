#include "xcode/QVTXcodeArchiveMonitor.h"

#include <chrono>
#include <utility>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/SystemLog.h"
#include "foundation/queue/NotificationCenter.h"

using foundation::DispatchQueue;
using foundation::FileEventSource;
using foundation::NotificationCenter;
namespace FileManager = foundation::FileManager;

namespace {

constexpr std::chrono::seconds kNotificationDelay{1};

void stop(std::shared_ptr<FileEventSource>& source) {
  if (source) source->cancel();
  source.reset();
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

/// Handlers refer to this object. None is running once the queue was held here, and none starts
/// after its source was cancelled.
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
  const auto names = FileManager::visibleContentsOfDirectoryAtPath(*path);
  if (!names) return std::nullopt;
  std::optional<std::pair<foundation::Date, std::string>> latest;
  for (const std::string& name : *names) {
    std::string entry = foundation::appendingPathComponent(*path, name);
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
