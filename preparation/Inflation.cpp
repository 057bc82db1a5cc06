#include "preparation/Inflation.h"

#include <cerrno>
#include <set>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/MappedFile.h"
#include "foundation/file/UserFolders.h"
#include "preparation/PrivateDirectory.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/TemporaryItems.h"
#include "preparation/UnzipPaths.h"

namespace FileManager = foundation::FileManager;
using foundation::Result;

namespace {

constexpr std::string_view kPayload = "Payload";

/// If "A" cannot be opened, `unzip` silently takes "A.zip", which is another build.
bool wouldUnpackAnother(const std::string& archive) {
  const bool isReadable =
      ::access(archive.c_str(), R_OK) == 0 && !FileManager::isDirectoryAtPath(archive);
  return !isReadable && (FileManager::fileExistsAtPath(archive + ".zip") ||
                         FileManager::fileExistsAtPath(archive + ".ZIP"));
}

/// `unzip` can use neither, and would wait for a pipe's writer forever.
bool isPipeOrDevice(const std::string& path) {
  struct stat details {};
  return ::stat(path.c_str(), &details) == 0 && !S_ISREG(details.st_mode) &&
         !S_ISDIR(details.st_mode);
}

Result<std::string> makeFolder(const std::string& archive,
                               const std::optional<std::string>& ownParent) {
  const Result<std::string> parent =
      ownParent ? Result<std::string>(*ownParent) : FileManager::temporaryDirectory();
  if (!parent) return parent.error();
  const std::string name =
      foundation::deletingPathExtension(foundation::lastPathComponent(archive));
  // ".." would be the folder above the temporary one.
  if (name.empty() || name == "." || name == ".." || name == "/") {
    return foundation::posixError(EINVAL, "cannot name a folder after " + archive, archive);
  }
  std::string folder = *parent + name + "/";
  return (ownParent ? Result<>() : TemporaryItems::claimFolder(folder))
      .andThen([&] { return PrivateDirectory::make(folder); })
      .map([&] { return std::move(folder); });
}

// ---- What the archive declares

struct Contents {
  std::uint64_t archiveSize = 0;
  std::uint64_t declaredSize = 0;
  /// Absent when the directory cannot be read.
  std::optional<UnzipPaths> paths;
};

Contents readContents(const std::string& archive) {
  Contents contents;
  const auto file = foundation::MappedFile::open(archive);
  if (!file) return contents;
  contents.archiveSize = file->bytes().size();
  const auto directory = archive::ZipDirectory::read(file->bytes());
  if (!directory) return contents;
  contents.declaredSize = directory->uncompressedSize();
  contents.paths.emplace(*directory);
  // Do not rely on what was read from a file that has been truncated meanwhile.
  if (!foundation::MappingGuard::checkAll()) contents.paths.reset();
  return contents;
}

Result<> checkSize(const std::string& archive, std::uint64_t archiveSize, std::uint64_t size,
                   const InflationLimits& limits) {
  const bool isRatioAllowed =
      size <= limits.always || (size - 1) / limits.timesArchive < archiveSize;
  if (size <= limits.most && isRatioAllowed) return {};
  return foundation::makeError(foundation::kPOSIXErrorDomain, EFBIG,
                               "cannot unpack " + archive + ": its " + std::to_string(archiveSize) +
                                   " bytes hold " + std::to_string(size) +
                                   ", more than is allowed");
}

// ---- What is in the folder

struct Survey {
  /// Relative to the folder.
  std::vector<std::string> links;
  /// Of all files, in bytes.
  std::uint64_t size = 0;
};

/// Whether the path is in one of these items of "Payload".
bool isInApp(const std::string& path, const std::set<std::string>& apps) {
  const std::size_t start = kPayload.size() + 1;
  if (path.size() <= start || !path.starts_with(kPayload) || path[kPayload.size()] != '/') {
    return false;
  }
  const auto end = path.find('/', start);
  return end != path.npos && apps.contains(path.substr(start, end - start));
}

/// Skips the contents of these items of "Payload".
Result<Survey> survey(const std::string& folder, const std::set<std::string>& withoutApps = {}) {
  const auto paths = FileManager::subpathsOfDirectoryAtPath(folder);
  if (!paths) return paths.error();
  Survey survey;
  for (const std::string& path : *paths) {
    struct stat details {};
    if (::lstat((folder + path).c_str(), &details) != 0 || isInApp(path, withoutApps)) {
      continue;
    }
    if (S_ISLNK(details.st_mode)) survey.links.push_back(path);
    if (S_ISREG(details.st_mode)) survey.size += static_cast<std::uint64_t>(details.st_size);
  }
  return survey;
}

/// Names of the archive's apps that are already in the folder.
std::set<std::string> appsToReplace(const std::string& folder, const Contents& contents) {
  std::set<std::string> names;
  const std::string payload = foundation::appendingPathComponent(folder, kPayload);
  if (!contents.paths || !FileManager::isRealDirectory(payload)) return names;
  for (const std::string& name : contents.paths->apps()) {
    const std::string app = foundation::appendingPathComponent(payload, name);
    if (FileManager::isRealDirectory(app)) names.insert(name);
  }
  return names;
}

/// `unzip` follows links to folders and replaces other links. A link that the archive contains too
/// is most likely its own, from an earlier run.
Result<> checkLinks(const std::string& folder, const std::vector<std::string>& links,
                    const Contents& contents) {
  const bool mayReachAll = !contents.paths || !contents.paths->areCertain();
  for (const std::string& link : links) {
    if (!mayReachAll && !contents.paths->reach(link)) continue;
    if (!mayReachAll && contents.paths->replaceLink(link)) continue;
    const std::string path = foundation::appendingPathComponent(folder, link);
    return foundation::makeError(foundation::kPOSIXErrorDomain, ELOOP,
                                 "cannot unpack over " + path + ": it is a link");
  }
  return {};
}

Result<> removeApps(const std::string& folder, const std::set<std::string>& names) {
  const std::string payload = foundation::appendingPathComponent(folder, kPayload);
  for (const std::string& name : names) {
    const std::string app = foundation::appendingPathComponent(payload, name);
    if (auto removed = FileManager::removeItemAtPath(app); !removed) return removed;
    TemporaryItems::ownFromPayload(folder, name);
  }
  return {};
}

/// Returns the size of what stays in the folder.
Result<std::uint64_t> prepareFolder(const std::string& folder, const Contents& contents) {
  const std::set<std::string> replaced = appsToReplace(folder, contents);
  const auto before = survey(folder, replaced);
  if (!before) return before.error();
  return checkLinks(folder, before->links, contents)
      .andThen([&] { return removeApps(folder, replaced); })
      .map([&] { return before->size; });
}

std::set<std::string> appsIn(const std::string& payload) {
  const auto names = QVTFileSystemUtils::findPathsToAppsInDirectory(payload);
  return names ? std::set<std::string>(names->begin(), names->end()) : std::set<std::string>();
}

// ---- Unpacking

Result<> unzip(const std::string& archive, const std::string& folder) {
  const std::string tool = QVTFileSystemUtils::pathForRequiredShellTool("unzip").value_or("");
  const std::vector<std::string> arguments{"-qo", unzipPatternForPath(archive), "-d", folder};
  Result<> outcome;
  // On a full disk, unzip asks whether to continue.
  QVTTask::launchWithoutInput(
      tool, arguments,
      [&](const foundation::Data& errorData, const foundation::Data& outputData,
          std::int32_t status) {
        if (status == 0) return;
        auto run = QVTTask::descriptionOfRun(tool, arguments, errorData, outputData, status);
        run.insert({{"archivePath", archive}, {"temporaryPath", folder}});
        outcome = foundation::Error{.domain = std::string(QVTFileSystemUtilsErrorDomain),
                                    .code = -1,
                                    .userInfo = std::move(run)};
      });
  return outcome;
}

Result<> checkSizeOnDisk(const std::string& archive, const std::string& folder,
                         const Contents& contents, std::uint64_t sizeBefore,
                         const InflationLimits& limits) {
  const auto now = survey(folder);
  if (!now) return now.error();
  const std::uint64_t written = now->size > sizeBefore ? now->size - sizeBefore : 0;
  auto checked = checkSize(archive, contents.archiveSize, written, limits);
  if (!checked) TemporaryItems::removeOwn(folder);
  return checked;
}

}  // namespace

Result<Inflation> inflateArchive(const std::string& archive, const InflationOptions& options) {
  if (isPipeOrDevice(archive)) {
    return foundation::posixError(EINVAL, "cannot unpack a pipe or device, " + archive, archive);
  }
  const auto folder = makeFolder(archive, options.parent);
  if (!folder) return folder.error();
  if (wouldUnpackAnother(archive)) {
    return foundation::posixError(ENOENT, "cannot read archive " + archive, archive);
  }
  const Contents contents = readContents(archive);
  const auto sizeBefore =
      checkSize(archive, contents.archiveSize, contents.declaredSize, options.limits).andThen([&] {
        return prepareFolder(*folder, contents);
      });
  if (!sizeBefore) return sizeBefore.error();
  const std::string payload = *folder + std::string(kPayload);
  const std::set<std::string> before = appsIn(payload);
  const auto unpacked = unzip(archive, *folder).andThen([&] {
    return checkSizeOnDisk(archive, *folder, contents, *sizeBefore, options.limits);
  });
  if (!unpacked) return unpacked.error();
  Inflation inflation{.folder = *folder, .apps = {}, .otherApps = {}};
  const auto names = QVTFileSystemUtils::findPathsToAppsInDirectory(payload);
  for (const std::string& name : names.value_or(std::vector<std::string>())) {
    const bool isNamed = !contents.paths || contents.paths->apps().contains(name);
    (isNamed && !before.contains(name) ? inflation.apps : inflation.otherApps).push_back(name);
  }
  return inflation;
}
