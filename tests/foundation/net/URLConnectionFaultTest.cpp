#include "tests/foundation/net/Connections.h"

namespace foundation {
namespace {

using URLConnectionTLS = WithTrustedAuthority;

TEST(URLConnectionFaults, AServerThatFallsSilentIsTimedOut) {
  const ScriptedServer server(
      {"/response=send HTTP/1.1 200 OK\\r\\nContent-Length: 10\\r\\n\\r\\nfive! then stall",
       "/body=early stall"});
  for (const auto& [path, bodySize] : {std::pair("/response", 0), {"/body", 50'000'000}}) {
    URLRequest request = postTo(server.url(path), static_cast<std::size_t>(bodySize));
    request.idleTimeout = 300ms;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(answerTo(request), HasSubstr("Code=-1001")) << path;
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
  }
}

/// Each byte, and each part of a body that is in the system's buffers at once, moves within the
/// limit; all together take far longer.
TEST(URLConnectionFaults, BytesThatTrickleAreNoSilence) {
  std::string trickle;
  for (const char c : std::string("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123456789")) {
    trickle += "send " + escaped({&c, 1}) + " then wait 0.04 then ";
  }
  const ScriptedServer server(
      {"/response=" + trickle + "take 0",
       "/body=early " + repeated("take 200000 then wait 0.05 then ", 30) + "200 saying taken"});
  const auto start = std::chrono::steady_clock::now();
  for (const auto& [path, bodySize, answer] :
       {std::tuple("/response", 0, "0123456789"), {"/body", 6'000'000, "taken"}}) {
    URLRequest request = postTo(server.url(path), static_cast<std::size_t>(bodySize));
    request.idleTimeout = 700ms;
    EXPECT_EQ(answerTo(request), answer);
  }
  EXPECT_GT(std::chrono::steady_clock::now() - start, 3s);
}

/// The server closes with the rest of the body unread, which resets the connection under the
/// client's hands.
TEST_F(URLConnectionTLS, AnEarlyResponseIsTheAnswer) {
  for (const std::string& identity : {std::string(), identity_}) {
    const ScriptedServer server({"/=early take 100000 then 413 saying enough"}, identity);
    const URLRequest request = postTo(server.url(), 20'000'000);
    for (int round = 0; round < 25; ++round) ASSERT_EQ(answerTo(request), "enough") << round;
  }
}

}  // namespace
}  // namespace foundation
