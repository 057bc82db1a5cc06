#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "foundation/base/Handle.h"
#include "foundation/base/WriteAll.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"

using foundation::bytesOf;
using foundation::FileDescriptor;

namespace {

/// More than a pipe holds, so that a blocked write is interrupted after a part of it.
TEST(WriteAll, GoesOnAfterSignalsAndShortWrites) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction before {};
  ::sigaction(SIGUSR1, &action, &before);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  std::string content;
  for (int i = 0; i < 100000; ++i) content += std::to_string(i);
  int error = -1;
  std::thread writing([&] {
    error = foundation::writeAll(writer.get(), content);
    writer.reset();
  });
  std::string arrived;
  char buffer[4096];
  for (ssize_t count = 1; count > 0;) {
    if (arrived.size() < content.size() / 2) ::pthread_kill(writing.native_handle(), SIGUSR1);
    count = ::read(reader.get(), buffer, sizeof buffer);
    if (count > 0) arrived.append(buffer, static_cast<std::size_t>(count));
  }
  writing.join();
  ::sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_TRUE(arrived == content);
}

TEST(WriteAll, WritesAtAPositionAndTellsWhatFailed) {
  const test::TemporaryFolder folder;
  const auto path = folder.write("file", "0123456789");
  const FileDescriptor file(::open(path.c_str(), O_WRONLY));
  EXPECT_EQ(foundation::writeAllAt(file.get(), 3, bytesOf("abc")), 0);
  EXPECT_EQ(foundation::writeAll(file.get(), "X"), 0);
  EXPECT_EQ(foundation::writeAllAt(file.get(), 100, {}), 0);
  EXPECT_EQ(test::contentsOf(path), "X12abc6789");
  EXPECT_EQ(foundation::writeAll(-1, "x"), EBADF);
  EXPECT_EQ(test::inChildProcess([&] {
              std::signal(SIGXFSZ, SIG_IGN);
              const struct rlimit small { 12, 12 };
              ::setrlimit(RLIMIT_FSIZE, &small);
              return std::to_string(foundation::writeAllAt(file.get(), 8, bytesOf("abcdefgh")));
            }),
            std::to_string(EFBIG));
  EXPECT_EQ(test::contentsOf(path), "X12abc67abcd");
}

}  // namespace
