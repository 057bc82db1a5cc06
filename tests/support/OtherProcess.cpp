#include "tests/support/OtherProcess.h"

#include <cerrno>
#include <system_error>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

std::string inChildProcess(const std::function<std::string()>& work) {
  int pipe[2];
  if (::pipe(pipe) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    ::close(pipe[0]);
    const std::string text = work();
    const bool sent =
        ::write(pipe[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::_exit(sent ? 0 : 99);
  }
  ::close(pipe[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = ::read(pipe[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(pipe[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return status == 0 ? text : "child ended with status " + std::to_string(status);
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

}  // namespace test
