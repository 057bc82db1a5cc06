#include "preparation/QVTFileSystemUtils.h"

#include <filesystem>
#include <map>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/process/SystemLog.h"
#include "preparation/Inflation.h"
#include "preparation/PrivateDirectory.h"
#include "preparation/TemporaryItems.h"

namespace FileManager = foundation::FileManager;
using foundation::appendingPathComponent;
using foundation::ErrorSlot;
using foundation::FileEventSource;
using foundation::lastPathComponent;
using foundation::Result;

namespace {

const std::string kWhich = "/usr/bin/which";

struct Answer {
  /// Trimmed standard output; absent if it is not UTF-8.
  std::optional<std::string> text;
  std::int32_t status = 0;
};

Answer answerOf(const std::string& tool, const std::vector<std::string>& arguments) {
  Answer answer;
  QVTTask::launchWithPathWorkingDirectoryArgumentsCompletion(
      tool, std::nullopt, arguments,
      [&](const foundation::Data&, const foundation::Data& output, std::int32_t status) {
        if (const auto text = foundation::stringFromUTF8(output.bytes())) {
          answer.text = std::string(foundation::trimmed(*text));
        }
        answer.status = status;
      });
  return answer;
}

Answer whichAnswer(const std::string& name) {
  if (!FileManager::fileExistsAtPath(kWhich)) {
    foundation::systemLogOnce(kWhich + " is missing, which finds tools in PATH");
  }
  return answerOf(kWhich, {name});
}

/// For callers that cannot return the error.
bool okOrLogged(const Result<>& result) {
  if (!result) foundation::systemLog("%@", result.error().localizedDescription());
  return result.ok();
}

Result<std::string> appStorage() {
  return FileManager::temporaryDirectory().map([](const std::string& temporary) {
    return appendingPathComponent(temporary, "com.quorvantile.mac/apps");
  });
}

/// The target of a link; anything else as is.
std::string behindLinks(const std::string& path) {
  std::error_code problem;
  const auto real = std::filesystem::canonical(path, problem);
  return problem ? path : real.string();
}

Result<std::string> copyToNewFolder(const std::string& path) {
  const Result<std::string> storage = appStorage();
  if (!storage) return storage.error();
  const std::string folder =
      appendingPathComponent(*storage, foundation::ProcessInfo::globallyUniqueString());
  std::string destination = appendingPathComponent(folder, lastPathComponent(path));
  TemporaryItems::claimNew(folder);
  if (const Result<> made = PrivateDirectory::make(folder); !made) return made.error();
  // The copy of a link would still lead to the original, which must not change.
  const Result<> copied = FileManager::copyItemAtPath(behindLinks(path), destination);
  if (!copied) okOrLogged(FileManager::removeItemAtPath(folder));
  return copied.map([&] { return std::move(destination); });
}

template <class T>
std::optional<T> valueOrStore(Result<T> result, ErrorSlot error) {
  if (!result) store(error, result.error());
  return std::move(result).value();
}

/// The platform's code for a URL that does not name a file.
constexpr long kUnsupportedScheme = 262;

Result<std::vector<foundation::URL>> dateSortedContents(const std::string& text) {
  const auto url = foundation::URL::withString(text);
  if (!url || (!url->isFileURL() && !url->scheme().empty())) {
    return foundation::makeError(foundation::kCocoaErrorDomain, kUnsupportedScheme,
                                 "cannot list \"" + text + "\": not the URL of a folder");
  }
  const std::string folder = url->path();
  const auto names = FileManager::visibleContentsOfDirectoryAtPath(folder);
  if (!names) return names.error();
  std::multimap<foundation::Date, foundation::URL> byDate;
  for (const std::string& name : *names) {
    const std::string path = appendingPathComponent(folder, name);
    // An entry that has disappeared meanwhile counts as the oldest.
    byDate.emplace(FileManager::creationDateOfItemAtPath(path).value_or(foundation::Date::min()),
                   foundation::URL::fileURLWithPath(path));
  }
  std::vector<foundation::URL> urls;
  for (auto& [date, entry] : byDate) urls.push_back(std::move(entry));
  return urls;
}

}  // namespace

std::optional<std::string> QVTFileSystemUtils::pathForShellTool(const std::string& name) {
  return whichAnswer(name).text;
}

std::optional<std::string> QVTFileSystemUtils::pathForRequiredShellTool(const std::string& name) {
  const Answer answer = whichAnswer(name);
  // If a signal ended `which`, nothing is known about the tool.
  if (answer.status == 1) foundation::systemLogOnce(name + " is not in PATH");
  return answer.text;
}

std::optional<std::string> QVTFileSystemUtils::pathForXcTool(const std::string& name) {
  auto finder = pathForRequiredShellTool("xcrun");
  if (!finder || finder->empty()) return finder;
  return answerOf(*finder, {"--find", name}).text;
}

std::string QVTFileSystemUtils::appTemporaryStoragePath() {
  Result<std::string> path = appStorage();
  if (!path) throw foundation::Exception(path.error().localizedDescription());
  return *std::move(path);
}

std::optional<std::string> QVTFileSystemUtils::moveAppToTempPath(const std::string& path,
                                                                 ErrorSlot error) {
  return valueOrStore(copyToNewFolder(path), error);
}

bool QVTFileSystemUtils::copyItemToDirectory(const std::optional<std::string>& item,
                                             const std::optional<std::string>& directory) {
  if (!item || !directory) return false;
  const std::string target = *directory + "/" + lastPathComponent(*item);
  return removeItemAtPathIfPresent(target) &&
         okOrLogged(FileManager::copyItemAtPath(*item, target));
}

bool QVTFileSystemUtils::removeItemAtPathIfPresent(const std::string& path) {
  struct stat details {};
  // The first test may fail for another reason than a missing item. A dangling link counts as
  // missing.
  const bool isThere = FileManager::fileExistsAtPath(path) ||
                       (::lstat(path.c_str(), &details) == 0 && !S_ISLNK(details.st_mode));
  return !isThere || okOrLogged(FileManager::removeItemAtPath(path));
}

bool QVTFileSystemUtils::isZeroByteFile(const std::string& path) {
  const auto content = FileManager::contentsOfFile(path);
  return !content || content->empty();
}

std::optional<std::string> QVTFileSystemUtils::inflateToTemporaryPathArchive(
    const std::string& archive, ErrorSlot error) {
  return valueOrStore(inflateArchive(archive).map(&Inflation::folder), error);
}

std::optional<std::vector<std::string>> QVTFileSystemUtils::findPathsToAppsInDirectory(
    const std::string& directory, ErrorSlot error) {
  auto names = FileManager::contentsOfDirectoryAtPath(directory);
  if (names) std::erase_if(*names, [](const std::string& name) { return !name.ends_with(".app"); });
  return valueOrStore(std::move(names), error);
}

std::optional<std::vector<foundation::URL>> QVTFileSystemUtils::dateSortedContentsOfPath(
    const std::string& path, ErrorSlot error) {
  return valueOrStore(dateSortedContents(path), error);
}

std::shared_ptr<FileEventSource> QVTFileSystemUtils::createDispatchSourceObservePathChangeHandler(
    const std::string& path, std::function<void()> handler) {
  return FileEventSource::watchWrites(path, foundation::DispatchQueue::global(),
                                      std::move(handler));
}

std::shared_ptr<FileEventSource> QVTFileSystemUtils::createDispatchSourceFileAtPathIsAvailable(
    const std::string& filePath, std::function<void()> block) {
  return createDispatchSourceObservePathChangeHandler(
      foundation::deletingLastPathComponent(filePath), [filePath, block = std::move(block)] {
        if (foundation::FileManager::fileExistsAtPath(filePath)) block();
      });
}
