#include <regex>

#include "console/QVTCLUtilLog.h"
#include "tests/support/Test.h"

namespace {

TEST(ConsoleLog, EachLineIsStampedAndOneWriteOnEveryThread) {
  // Of this kind of socket each read returns one write; it gets a "|" after it.
  const std::string writes = inChildProcess([] {
    int ends[2];
    ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends);
    ::dup2(ends[1], STDOUT_FILENO);
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
      thread = std::thread([] {
        for (int i = 0; i < 25; ++i) {
          QVTCLUtilLog("%ld %@ %@", 404L, std::optional<std::string>(), "two%@\nlines");
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    std::string seen;
    char buffer[8192];
    for (ssize_t count; (count = ::recv(ends[0], buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
      seen.append(buffer, static_cast<std::size_t>(count)).append("|");
    }
    return seen;
  });
  const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} sendoff Quorvantile: )"
                        "404 \\(null\\) two%@\nlines\n\\|");
  EXPECT_EQ(std::regex_replace(writes, line, "."), std::string(100, '.'));
}

}  // namespace
