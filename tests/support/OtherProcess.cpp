#include "tests/support/OtherProcess.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/base/Handle.h"

namespace test {

namespace {

using foundation::FileDescriptor;

std::pair<FileDescriptor, FileDescriptor> makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::string readAll(const FileDescriptor& end) {
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = ::read(end.get(), buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

/// The exit status, or 128 plus the number of the fatal signal.
int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::size_t entriesOf(const char* folder) {
  using Entries = std::filesystem::directory_iterator;
  return static_cast<std::size_t>(std::distance(Entries(folder), Entries()));
}

struct ChildResult {
  int status = -1;
  std::string output;
};
/// Of a forked child, which writes to the descriptor. The parent's remaining tests never run in it.
ChildResult resultOfChild(const std::function<void(int output)>& work) {
  auto [reading, writing] = makePipe();
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    work(writing.get());
    ::_exit(99);
  }
  writing.reset();
  std::string output = readAll(reading);
  return {statusOf(child), std::move(output)};
}

}  // namespace

std::string outputOf(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  std::string line;
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
    line += argument + " ";
  }
  argv.push_back(nullptr);
  ChildResult result = resultOfChild([&argv](int output) {
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    ::execvp(argv[0], argv.data());
  });
  if (result.status == 0) return std::move(result.output);
  throw std::runtime_error(line + "ended with " + std::to_string(result.status) + ": " +
                           result.output);
}

std::string inChildProcess(const std::function<std::string()>& work) {
  const ChildResult result = resultOfChild([&work](int output) {
    std::string text;
    try {
      text = work();
    } catch (const std::exception& exception) {
      text = std::string("exception: ") + exception.what();
    }
    if (::write(output, text.data(), text.size()) == ssize_t(text.size())) ::_exit(0);
  });
  if (result.status == 0) return result.output;
  return "child ended with status " + std::to_string(result.status);
}

std::string asUnprivilegedUser(const std::function<std::string()>& work) {
  return inChildProcess([&work]() -> std::string {
    if (::geteuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivilegedUser) != 0 ||
                             ::setuid(kUnprivilegedUser) != 0)) {
      return "cannot change the user";
    }
    return work();
  });
}

std::size_t openDescriptors() { return entriesOf("/proc/self/fd"); }
std::size_t threadCount() { return entriesOf("/proc/self/task"); }

}  // namespace test
