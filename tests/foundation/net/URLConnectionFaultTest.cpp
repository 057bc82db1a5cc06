#include "tests/foundation/net/Connections.h"

namespace foundation {
namespace {

/// The faults that the rows of whole runs do not meet.
TEST(URLConnectionFaults, EndInAnErrorThatNamesThePlace) {
  const Handler endlessField = [](const auto&, Peer& peer) {
    peer.send("HTTP/1.1 200 OK\r\nX: ");
    while (peer.send(std::string(900, 'x'))) {
    }
  };
  for (const Handler& fault :
       {alwaysAnswer(
            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello!!\r\n0\r\n\r\n"),
        alwaysAnswer(httpAnswer(200, "not gzip", "Content-Encoding: gzip\r\n")), endlessField}) {
    const LoopbackServer server(fault);
    const auto exchange = send(secretPostTo(server.url("/path?secret=canary"), 1000));
    EXPECT_FALSE(exchange.response);
    ASSERT_TRUE(exchange.error);
    EXPECT_EQ(exchange.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(exchange.error->code, -1011) << exchange.error->description();
    EXPECT_THAT(exchange.error->localizedDescription(),
                HasSubstr("127.0.0.1 port " + std::to_string(server.port())));
    EXPECT_THAT(exchange.error->description(), Not(HasSubstr("canary")));
  }
}

TEST(URLConnectionFaults, AServerThatFallsSilentIsTimedOut) {
  const auto stall = [](Peer& peer) {
    peer.stall();
    return true;
  };
  ServerOptions atOnce;
  atOnce.onConnection = stall;
  ServerOptions inTheBody;
  inTheBody.onHead = [&](const ReceivedRequest&, Peer& peer) { return stall(peer); };
  const Handler inTheAnswer = [](const ReceivedRequest&, Peer& peer) {
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfive!");
    peer.stall();
  };
  const LoopbackServer servers[] = {LoopbackServer(inTheAnswer),
                                    LoopbackServer(alwaysAnswer(""), atOnce),
                                    LoopbackServer(alwaysAnswer(""), inTheBody)};
  for (const LoopbackServer& server : servers) {
    URLRequest request = secretPostTo(server.url("/"), &server == servers ? 0 : 50'000'000);
    request.idleTimeout = 300ms;
    const auto start = std::chrono::steady_clock::now();
    const auto exchange = send(request);
    ASSERT_TRUE(exchange.error);
    EXPECT_EQ(exchange.error->code, -1001) << exchange.error->description();
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
  }
}

/// Single bytes of the headers, then of a body, each within the limit, all together far beyond it.
TEST(URLConnectionFaults, BytesThatTrickleAreNoSilence) {
  const std::string answer = httpAnswer(200, "0123456789");
  const LoopbackServer server([&](const ReceivedRequest&, Peer& peer) {
    for (const char c : answer) {
      std::this_thread::sleep_for(40ms);
      peer.send({&c, 1});
    }
  });
  URLRequest request = requestFor(server.url("/"));
  request.idleTimeout = 400ms;
  const auto start = std::chrono::steady_clock::now();
  const auto exchange = send(request);
  ASSERT_EQ(problemOf(exchange), "");
  EXPECT_EQ(exchange.data->text(), "0123456789");
  EXPECT_GT(std::chrono::steady_clock::now() - start, 1s);
}

/// All of the body is in the system's buffers at once; the server takes it slowly.
TEST(URLConnectionFaults, ABodyThatTheServerTakesSlowlyIsNoSilence) {
  ServerOptions options;
  options.onHead = [](const ReceivedRequest& request, Peer& peer) {
    std::size_t left = std::stoul(*request.header("Content-Length"));
    while (left > 0) {
      std::this_thread::sleep_for(50ms);
      for (std::size_t part = std::min<std::size_t>(left, 200'000); part > 0;) {
        const std::size_t count = peer.receive(part).size();
        if (count == 0) return true;
        part -= count;
        left -= count;
      }
    }
    peer.send(httpAnswer(200));
    return true;
  };
  const LoopbackServer server(alwaysAnswer(""), options);
  URLRequest request = secretPostTo(server.url("/"), 6'000'000);
  request.idleTimeout = 700ms;
  const auto exchange = send(request);
  ASSERT_EQ(problemOf(exchange), "");
  EXPECT_EQ(exchange.response->statusCode, 200);
}

using URLConnectionTLS = WithTrustedAuthority;

TEST_F(URLConnectionTLS, AServerWithoutTLSAndAMissingListOfAuthoritiesGiveNoSecureConnection) {
  const ScopedEnvironment missing("SSL_CERT_FILE", "/nowhere/trusted.pem");
  ServerOptions withoutTLS;
  withoutTLS.onConnection = [](Peer& peer) {
    return peer.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  };
  for (const auto& options : {withoutTLS, tls(authority_)}) {
    const LoopbackServer server(alwaysAnswer(httpAnswer(200)), options);
    const auto exchange =
        send(requestFor("https://localhost:" + std::to_string(server.port()) + "/"));
    ASSERT_TRUE(exchange.error);
    EXPECT_EQ(exchange.error->code, -1200) << exchange.error->description();
    EXPECT_TRUE(server.requests().empty());
  }
}

/// The response comes when the headers are there; then the server closes with the rest of the body
/// unread, which resets the connection under the client's hands.
TEST_F(URLConnectionTLS, AnEarlyResponseIsTheAnswer) {
  for (ServerOptions options : {ServerOptions(), tls(authority_)}) {
    options.onHead = [](const ReceivedRequest&, Peer& peer) {
      peer.receive(100'000);
      peer.send(httpAnswer(413, "enough"));
      return true;
    };
    const LoopbackServer server(alwaysAnswer(""), options);
    const URLRequest request = secretPostTo(server.url("/"), 20'000'000);
    for (int round = 0; round < 25; ++round) {
      const auto exchange = send(request);
      ASSERT_EQ(problemOf(exchange), "") << round;
      EXPECT_EQ(exchange.response->statusCode, 413);
    }
  }
}

}  // namespace
}  // namespace foundation
