#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/URLConnection.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

using test::alwaysAnswer;
using test::httpAnswer;
using test::LoopbackServer;
using test::Peer;
using test::ReceivedRequest;

class URLConnectionTLS : public testing::Test {
 protected:
  static test::ServerOptions tls(test::TLSIdentity identity) {
    test::ServerOptions options;
    options.identity = std::move(identity);
    return options;
  }

  static URLConnection::Exchange send(const std::string& url, std::size_t bodySize = 10) {
    URLRequest request;
    request.url = URL::withString(url);
    request.method = "POST";
    request.headers = {{"X-Secret", "canary"}};
    request.body.emplace().append(Data(std::string(bodySize, 'x')));
    return URLConnection::sendSynchronousRequest(request);
  }

  test::TemporaryFolder folder_;
  test::TLSAuthority authority_;
  std::string trusted_ = folder_.write("trusted.pem", authority_.certificate()).string();
  test::ScopedEnvironment trust_{"SSL_CERT_FILE", trusted_.c_str()};
};

TEST_F(URLConnectionTLS, AServerWithoutTLSGivesNoSecureConnection) {
  test::ServerOptions options;
  options.onConnection = [](Peer& peer) {
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    return true;
  };
  const LoopbackServer server(alwaysAnswer(""), options);
  const auto exchange = send("https://localhost:" + std::to_string(server.port()) + "/");
  ASSERT_TRUE(exchange.error);
  EXPECT_EQ(exchange.error->code, -1200) << exchange.error->description();
}

TEST_F(URLConnectionTLS, AMissingListOfAuthoritiesTrustsNobody) {
  const test::ScopedEnvironment missing("SSL_CERT_FILE", "/nowhere/trusted.pem");
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)), tls(authority_.issue()));
  const auto exchange = send(server.url("/"));
  ASSERT_TRUE(exchange.error);
  EXPECT_EQ(exchange.error->code, -1200) << exchange.error->description();
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(URLConnectionTLS, AnEarlyAnswerIsTheAnswer) {
  test::ServerOptions options = tls(authority_.issue());
  options.onHead = [](const ReceivedRequest&, Peer& peer) {
    peer.receive(100'000);
    peer.send(httpAnswer(413, "enough"));
    return true;
  };
  const LoopbackServer server(alwaysAnswer(""), options);
  for (int round = 0; round < 15; ++round) {
    const auto exchange = send(server.url("/"), 20'000'000);
    ASSERT_TRUE(exchange.response) << round << ": " << exchange.error->description();
    EXPECT_EQ(exchange.response->statusCode, 413);
  }
}

}  // namespace
}  // namespace foundation
