#include <regex>

#include "console/QVTCLUtilLog.h"
#include "tests/support/Test.h"

namespace {

const std::string kStamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} sendoff Quorvantile: )";

/// What `work` writes to standard output, with a "|" after each single write.
std::string writesOf(const std::function<void()>& work) {
  return inChildProcess([&work] {
    int ends[2];
    ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends);
    ::dup2(ends[1], STDOUT_FILENO);
    work();
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    std::string seen;
    char buffer[8192];
    for (ssize_t count; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
      seen.append(buffer, static_cast<std::size_t>(count)).append("|");
    }
    return seen;
  });
}

TEST(ConsoleLog, EachLineIsStampedAndOneWrite) {
  const std::string writes = writesOf([] {
    QVTCLUtilLog("status %ld for %@", 404L, std::optional<std::string>());
    QVTCLUtilLog("two\nlines\n");
  });
  EXPECT_TRUE(std::regex_match(
      writes, std::regex(kStamp + "status 404 for \\(null\\)\n\\|" + kStamp + "two\nlines\n\n\\|")))
      << writes;
}

TEST(ConsoleLog, WhatStandsInAnArgumentIsNoDirective) {
  debugMode = true;
  const std::string output = printedBy([] {
    QVTCLUtilLog("%@", "100%@ %ld");
    debugLog("%@ %d", "50%@", 7);
  });
  debugMode = false;
  EXPECT_TRUE(std::regex_match(output, std::regex(kStamp + "100%@ %ld\n" + kStamp + "50%@ 7\n")))
      << output;
}

TEST(ConsoleLog, LinesFromSeveralThreadsStayWhole) {
  const std::string output = printedBy([] {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([] {
        for (int i = 0; i < 50; ++i) QVTCLUtilLog("%@", std::string(100, 'x'));
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  const std::regex line(kStamp + "x{100}\n");
  EXPECT_EQ(std::distance(std::sregex_iterator(output.begin(), output.end(), line), {}), 200);
  EXPECT_EQ(std::regex_replace(output, line, ""), "");
}

}  // namespace
