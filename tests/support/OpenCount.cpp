#include "tests/support/OpenCount.h"

#include <cerrno>
#include <system_error>

#include <sys/inotify.h>
#include <unistd.h>

namespace test {

// The kernel merges consecutive equal events, so closing is watched, too: the two alternate.
OpenCount::OpenCount(const std::filesystem::path& file)
    : events_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (::inotify_add_watch(events_.get(), file.c_str(), IN_OPEN | IN_CLOSE) < 0) {
    throw std::system_error(errno, std::generic_category(), file.string());
  }
}

int OpenCount::take() const {
  int count = 0;
  inotify_event event{};
  while (::read(events_.get(), &event, sizeof event) == sizeof event) {
    if (event.mask & IN_OPEN) ++count;
  }
  return count;
}

}  // namespace test
