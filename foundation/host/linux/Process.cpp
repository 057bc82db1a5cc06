#include <cerrno>
#include <charconv>
#include <mutex>
#include <string>

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include "foundation/base/Text.h"
#include "foundation/host/Host.h"
#include "foundation/host/ProcessTable.h"

namespace foundation {

namespace {

constexpr std::size_t kLongestCommandName = 16;

/// Reads a file in /proc, which does not report its size. Absent with errno set on failure.
std::optional<std::string> contentsOf(int file) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t count = ::read(file, buffer, sizeof buffer);
    if (count == 0) return text;
    if (count > 0) {
      text.append(buffer, static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return std::nullopt;
    }
  }
}

/// The descriptor set aside by `reserveDescriptorForProcessRecords`.
class Reserve {
 public:
  void fill() {
    const std::lock_guard lock(mutex_);
    isWanted_ = true;
    refill();
  }
  /// Calls `read`, and once more with the reserve closed if it failed for lack of descriptors.
  template <class Read>
  auto support(Read read) {
    auto result = read();
    if (result || !lacksDescriptors(errno)) return result;
    const std::lock_guard lock(mutex_);
    if (!isWanted_) return result;
    spare_.reset();
    result = read();
    const int error = errno;
    refill();
    errno = lacksDescriptors(error) ? ESRCH : error;
    return result;
  }

 private:
  static bool lacksDescriptors(int error) { return error == EMFILE || error == ENFILE; }
  void refill() {
    if (!spare_) spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  }

  std::mutex mutex_;
  bool isWanted_ = false;
  FileDescriptor spare_;
};

Reserve& reserve() {
  static Reserve forRecords;
  return forRecords;
}

FileDescriptor openRecord(pid_t process, const char* name) {
  const std::string path = "/proc/" + std::to_string(process) + "/" + name;
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

/// True for a process that is gone, or that this user may not see (a /proc mounted with hidepid):
/// reading again would not help.
bool meansNoRecord(int error) {
  return error == ENOENT || error == ESRCH || error == EPERM || error == EACCES;
}

/// proc(5): "pid (command) state ppid …"; the command may contain spaces and parentheses.
std::optional<ProcessRecord> parseRecord(pid_t process, std::string_view text) {
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (open == text.npos || close == text.npos || close < open) return std::nullopt;
  ProcessRecord record;
  record.processIdentifier = process;
  record.commandName = text.substr(open + 1, close - open - 1).substr(0, kLongestCommandName);
  const std::string_view rest = text.substr(close + 1);
  constexpr std::size_t parentOffset = 3;  // " S "
  if (rest.size() <= parentOffset) return std::nullopt;
  const char* const first = rest.data() + parentOffset;
  const auto parsed =
      std::from_chars(first, rest.data() + rest.size(), record.parentProcessIdentifier);
  if (parsed.ec != std::errc()) return std::nullopt;
  return record;
}

}  // namespace

std::optional<ProcessRecord> processRecord(pid_t processIdentifier) {
  if (processIdentifier <= 0) return ProcessRecord{};
  const auto text = reserve().support([&]() -> std::optional<std::string> {
    const FileDescriptor file = openRecord(processIdentifier, "stat");
    return file ? contentsOf(file.get()) : std::nullopt;
  });
  if (text) return parseRecord(processIdentifier, *text);
  if (meansNoRecord(errno)) return ProcessRecord{};
  return std::nullopt;
}

void reserveDescriptorForProcessRecords() { reserve().fill(); }

namespace host {

std::string executablePath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return path;
}

std::optional<std::string> parentHome() {
  const FileDescriptor file = openRecord(::getppid(), "environ");
  struct stat details {};
  if (!file || ::fstat(file.get(), &details) != 0 || details.st_uid != ::geteuid()) {
    return std::nullopt;
  }
  const std::optional<std::string> text = contentsOf(file.get());
  if (!text) return std::nullopt;
  constexpr std::string_view name = "HOME=";
  for (const std::string& variable : split(*text, '\0')) {
    if (variable.starts_with(name) && variable != name) return variable.substr(name.size());
  }
  return std::nullopt;
}

void enlargePipe(int pipe) {
  constexpr int usual = 64 * 1024;
  int size = 1024 * 1024;
  const FileDescriptor limit(::open("/proc/sys/fs/pipe-max-size", O_RDONLY | O_CLOEXEC));
  if (limit) {
    const auto text = contentsOf(limit.get());
    if (text) std::from_chars(text->data(), text->data() + text->size(), size);
  }
  while (size > usual && ::fcntl(pipe, F_SETPIPE_SZ, size) < 0) size /= 2;
}

int closeOtherDescriptors(posix_spawn_file_actions_t& actions, short&) {
  return ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

}  // namespace host

}  // namespace foundation
