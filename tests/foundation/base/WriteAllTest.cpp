#include "foundation/base/WriteAll.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

/// More than a pipe holds, so that a blocked write is interrupted after a part of it.
TEST(WriteAll, GoesOnAfterSignalsAndShortWrites) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &action, nullptr);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  const std::string content = noise(500'000);
  int error = -1;
  std::thread writing([&] {
    error = writeAll(writer.get(), content);
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
  EXPECT_EQ(error, 0);
  EXPECT_TRUE(arrived == content);
}

}  // namespace
}  // namespace foundation
