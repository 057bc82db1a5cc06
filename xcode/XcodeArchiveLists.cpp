// What the archives location holds, for QVTXcodeArchiveMonitor.
#include <vector>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "xcode/QVTXcodeArchiveMonitor.h"

namespace {

using Archive = std::shared_ptr<QVTXcodeArchive>;

/// Paths of the visible entries; none when the folder cannot be listed.
std::vector<std::string> visibleEntries(const std::string& path) {
  std::vector<std::string> entries;
  const auto names = foundation::FileManager::visibleContentsOfDirectoryAtPath(path);
  if (!names) return entries;
  for (const std::string& name : *names) {
    entries.push_back(foundation::appendingPathComponent(path, name));
  }
  return entries;
}

}  // namespace

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
