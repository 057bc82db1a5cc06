#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>

#include "foundation/FileManager.h"
#include "foundation/ProcessInfo.h"
#include "foundation/host/Host.h"

namespace foundation::FileManager {

namespace {

/// Makes the folder for this user alone, or makes sure that the one that is there is.
Result<> makePrivateFolder(const std::string& path) {
  if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return posixError(errno, "cannot make temporary folder " + path, path);
  }
  struct stat details {};
  if (::lstat(path.c_str(), &details) != 0) {
    return posixError(errno, "cannot examine temporary folder " + path, path);
  }
  if (!S_ISDIR(details.st_mode)) {
    return posixError(ENOTDIR, "temporary folder " + path + " is refused", path);
  }
  if (details.st_uid != ::geteuid()) {
    return posixError(EPERM,
                      "temporary folder " + path + " is refused: it belongs to user " +
                          std::to_string(details.st_uid),
                      path);
  }
  if ((details.st_mode & (S_IRWXG | S_IRWXO)) != 0 && ::chmod(path.c_str(), S_IRWXU) != 0) {
    return posixError(errno, "cannot make temporary folder " + path + " private", path);
  }
  return {};
}

std::optional<std::string> nonEmptyEnvironmentValue(const std::string& name) {
  std::optional<std::string> value = ProcessInfo::environmentValue(name);
  if (value && value->empty()) return std::nullopt;
  return value;
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
  if (const std::optional<std::string> given = nonEmptyEnvironmentValue("TMPDIR")) {
    // Some tools run in another folder.
    std::error_code problem;
    std::string folder = std::filesystem::absolute(*given, problem);
    if (problem)
      return posixError(problem.value(), "cannot use temporary folder " + *given, *given);
    if (folder.back() != '/') folder += '/';
    return folder;
  }
  std::string own = "/tmp/sendoff-" + std::to_string(::geteuid());
  if (const Result<> made = makePrivateFolder(own); !made) return made.error();
  return own + "/";
}

std::string homeDirectory() {
  if (std::optional<std::string> home = nonEmptyEnvironmentValue("HOME")) return *std::move(home);
  if (std::optional<std::string> home = host::parentHome()) return *std::move(home);
  return homeInUserDatabase();
}

}  // namespace foundation::FileManager
