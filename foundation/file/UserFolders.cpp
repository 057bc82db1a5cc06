#include "foundation/file/UserFolders.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/host/Host.h"
#include "foundation/process/ProcessInfo.h"
#include "foundation/process/SystemLog.h"

namespace foundation::FileManager {

namespace {

/// A folder with an unguessable name, used until the process ends. Never destroyed.
struct Substitute {
  std::mutex mutex;
  /// Empty until needed.
  std::string path;
};

Substitute& substitute() {
  static auto& shared = *new Substitute;
  return shared;
}

/// Makes the folder that is used instead of `taken`, which belongs to another user.
Result<std::string> substituteFor(const std::string& taken, uid_t owner) {
  const std::lock_guard lock(substitute().mutex);
  std::string& path = substitute().path;
  if (path.empty()) {
    std::string made = taken + "-XXXXXX";
    if (!::mkdtemp(made.data())) return fileError(errno, "make temporary folder", made);
    path = made;
    static const int registered = std::atexit(removeSubstituteIfEmpty);
    static_cast<void>(registered);
    systemLogText(taken + " belongs to user " + std::to_string(owner) + ", so " + path +
                  " is used in its place");
  }
  return path;
}

/// The folder; if missing, it is made accessible to this user only.
Result<std::string> privateFolder(const std::string& path) {
  if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return fileError(errno, "make temporary folder", path);
  }
  struct stat details {};
  if (::lstat(path.c_str(), &details) != 0) {
    return fileError(errno, "examine temporary folder", path);
  }
  if (details.st_uid != ::geteuid()) return substituteFor(path, details.st_uid);
  if (!S_ISDIR(details.st_mode)) {
    return posixError(ENOTDIR, "temporary folder " + path + " is refused", path);
  }
  // Anything in it may come from another user.
  if ((details.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return posixError(EPERM, "temporary folder " + path + " is refused: others may write to it",
                      path);
  }
  if ((details.st_mode & (S_IRWXG | S_IRWXO)) != 0 && ::chmod(path.c_str(), S_IRWXU) != 0) {
    return posixError(errno, "cannot make temporary folder " + path + " private", path);
  }
  return path;
}

std::string homeInUserDatabase() {
  constexpr std::size_t largestEntry = 1 << 20;
  std::vector<char> buffer(4096);
  struct passwd entry {};
  struct passwd* found = nullptr;
  while (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
         buffer.size() < largestEntry) {
    buffer.resize(buffer.size() * 2);
  }
  return found && found->pw_dir && *found->pw_dir ? found->pw_dir : "/";
}

}  // namespace

Result<std::string> temporaryDirectory() {
  if (const auto given = ProcessInfo::nonEmptyEnvironmentValue("TMPDIR")) {
    // Absolute, since some tools run in another working directory.
    std::error_code problem;
    std::string folder = std::filesystem::absolute(*given, problem);
    if (problem) return fileError(problem.value(), "use temporary folder", *given);
    if (folder.back() != '/') folder += '/';
    return folder;
  }
  return privateFolder("/tmp/sendoff-" + std::to_string(::geteuid()))
      .map([](const std::string& own) { return own + '/'; });
}

void removeSubstituteIfEmpty() {
  const std::lock_guard lock(substitute().mutex);
  const std::string& path = substitute().path;
  if (path.empty()) return;
  // A folder comes before its entries.
  const auto entries = subpathsOfDirectoryAtPath(path);
  for (std::size_t i = entries ? entries->size() : 0; i-- > 0;) {
    ::rmdir((path + "/" + (*entries)[i]).c_str());
  }
  if (::rmdir(path.c_str()) == 0) substitute().path.clear();
}

std::string homeDirectory() {
  if (auto home = ProcessInfo::nonEmptyEnvironmentValue("HOME")) return *std::move(home);
  if (auto home = host::parentHome()) return *std::move(home);
  return homeInUserDatabase();
}

std::string expandingTilde(std::string_view path) {
  if (path != "~" && !path.starts_with("~/")) return std::string(path);
  return appendingPathComponent(homeDirectory(), path.substr(1));
}

}  // namespace foundation::FileManager
