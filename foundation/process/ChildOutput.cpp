// A child's output, read while it runs and after it has ended.
#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <poll.h>

#include "foundation/process/ChildProcess.h"

namespace foundation {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWaitForPipes{2};
constexpr std::size_t kMostTaken = std::size_t{1} << 20;
/// How often to check whether the child has ended, since a grandchild may hold its streams open.
constexpr std::chrono::milliseconds kPollInterval{100};

void stopBlocking(const FileDescriptor& pipe) {
  ::fcntl(pipe.get(), F_SETFL, ::fcntl(pipe.get(), F_GETFL) | O_NONBLOCK);
}

/// Reads what is available; false at the end of the pipe.
bool takeAvailable(int pipe, std::string& taken) {
  std::array<char, std::size_t{16} * 1024> buffer;
  for (;;) {
    const ssize_t count = ::read(pipe, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count < 0 && errno == EAGAIN;
    taken.append(buffer.data(),
                 std::min(static_cast<std::size_t>(count), kMostTaken - taken.size()));
  }
}

}  // namespace

void ChildProcess::takeOutputWhileRunning() {
  struct Stream {
    const FileDescriptor& pipe;
    std::string& taken;
  };
  const std::array<Stream, 2> streams = {Stream{standardOutput_, takenOutput_},
                                         Stream{standardError_, takenError_}};
  std::array<pollfd, 2> waiting{};
  for (std::size_t i = 0; i < streams.size(); ++i) {
    stopBlocking(streams[i].pipe);
    waiting[i] = {.fd = streams[i].pipe.get(), .events = POLLIN, .revents = 0};
  }
  // `poll` ignores negative descriptors.
  const auto isOpen = [](const pollfd& stream) { return stream.fd >= 0; };
  while (std::ranges::any_of(waiting, isOpen) && !hasEndedUnreaped()) {
    if (::poll(waiting.data(), waiting.size(), static_cast<int>(kPollInterval.count())) <= 0)
      continue;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (waiting[i].revents != 0 && !takeAvailable(waiting[i].fd, streams[i].taken)) {
        waiting[i].fd = -1;
      }
    }
  }
}

Data ChildProcess::readStandardErrorToEnd() {
  return readToEnd(standardError_, std::move(takenError_));
}

Data ChildProcess::readStandardOutputToEnd() {
  return readToEnd(standardOutput_, std::move(takenOutput_));
}

Data ChildProcess::readToEnd(const FileDescriptor& pipe, std::string text) {
  if (!readingEnds_) readingEnds_ = Clock::now() + kLongestWaitForPipes;
  stopBlocking(pipe);
  std::vector<char> buffer(std::size_t{64} * 1024);
  // Available bytes are read even when time is up, but a grandchild may write forever.
  constexpr std::size_t enough = std::size_t{64} << 20;
  for (;;) {
    const ssize_t count = ::read(pipe.get(), buffer.data(), buffer.size());
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*readingEnds_ - Clock::now()).count();
    if (count > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(count));
      if (text.size() >= enough) break;
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
      break;
    } else if (errno == EAGAIN) {
      if (left <= 0) break;
      struct pollfd waiting {
        pipe.get(), POLLIN, 0
      };
      ::poll(&waiting, 1, static_cast<int>(left));
    }
  }
  return Data(std::move(text));
}

}  // namespace foundation
