#include "tests/support/OtherProcess.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <grp.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

namespace {

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

/// Status and output of a forked child, which writes to the descriptor. The parent's remaining
/// tests never run in it.
std::pair<int, std::string> resultOfChild(const std::function<void(int output)>& work) {
  const foundation::FileDescriptor output(::memfd_create("output", MFD_CLOEXEC));
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    work(output.get());
    ::_exit(99);
  }
  const int status = statusOf(child);
  return {status, contentsOf("/proc/self/fd/" + std::to_string(output.get()))};
}

}  // namespace

void become(const std::vector<std::string>& arguments, int output) {
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  ::execvp(argv[0], argv.data());
  ::_exit(127);
}

std::string outputOf(const std::vector<std::string>& arguments) {
  const auto [status, text] = resultOfChild([&](int output) { become(arguments, output); });
  if (status == 0) return text;
  throw std::runtime_error(foundation::joined(arguments, " ") + " ended with " +
                           std::to_string(status) + ": " + text);
}

std::string inChildProcess(const std::function<std::string()>& work) {
  const auto [status, output] = resultOfChild([&work](int out) {
    std::string text;
    try {
      text = work();
    } catch (const std::exception& exception) {
      text = std::string("exception: ") + exception.what();
    }
    if (::write(out, text.data(), text.size()) == ssize_t(text.size())) ::_exit(0);
  });
  return status == 0 ? output : "child ended with status " + std::to_string(status);
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
