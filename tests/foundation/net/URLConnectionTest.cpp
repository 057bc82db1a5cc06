#include "tests/foundation/net/Connections.h"

namespace foundation {
namespace {

std::string pieceOfEveryKind(RequestBody& body) {
  body.append("first ");
  body.append(Data(std::string("second ")));
  body.append(std::string());
  body.append(Data(std::string(300'000, 'x')));
  return "first second " + std::string(300'000, 'x');
}

TEST(RequestBody, ReadsTheSameBytesInPiecesOfAnySize) {
  RequestBody body;
  const std::string expected = pieceOfEveryKind(body);
  EXPECT_EQ(body.size(), expected.size());
  EXPECT_EQ(body.joined(), expected);
  RequestBodyReader reader(body);
  for (const std::size_t size : {1u, 7u, 4096u, 1'000'000u}) {
    reader.rewind();
    std::string all;
    std::vector<std::byte> buffer(size);
    while (const std::size_t count = reader.read(buffer)) all += textOf(Bytes(buffer).first(count));
    EXPECT_EQ(all, expected) << size;
  }
}

TEST(URLConnection, SendsNothingThatNobodyAskedFor) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)));
  URLRequest request = requestFor(server.url("/a/../b//c%2F?q=a%20b#part"));
  request.headers = {{"X-Key", "value"}, {"X-Empty", ""}, {"Content-Length", "7"}};
  ASSERT_EQ(problemOf(send(request)), "");
  EXPECT_EQ(
      server.requests().at(0)->raw,
      "GET /a/../b//c%2F?q=a%20b HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
          "\r\nAccept-Encoding: gzip, deflate\r\nX-Empty:\r\nX-Key: value\r\n\r\n");
}

TEST(URLConnection, SendsBodiesWithTheirLength) {
  using Length = std::optional<std::string>;
  const std::tuple<const char*, bool, Length> cases[] = {{"PUT", true, "300013"},
                                                         {"REPORT", true, "300013"},
                                                         {"POST", false, "0"},
                                                         {"DELETE", false, std::nullopt},
                                                         {"HEAD", false, std::nullopt}};
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)));
  for (const auto& [method, hasBody, length] : cases) {
    SCOPED_TRACE(method);
    URLRequest request = requestFor(server.url("/body"), method);
    std::string expected;
    if (hasBody) expected = pieceOfEveryKind(request.body.emplace());
    ASSERT_EQ(problemOf(send(request)), "");
    const auto received = server.requests().back();
    EXPECT_EQ(received->method, method);
    EXPECT_EQ(received->header("Content-Length"), length);
    EXPECT_EQ(received->body(), expected);
    for (const char* field : {"Content-Type", "Expect", "Transfer-Encoding"}) {
      EXPECT_FALSE(received->header(field)) << field;
    }
  }
}

TEST(URLConnection, GivesBackStatusFieldsAndBytes) {
  const std::string head =
      "HTTP/1.1 100 Continue\r\nX-Early: 1\r\n\r\n"
      "HTTP/1.1 404 Not Found\r\nx-thing: a\r\nX-Thing: b\r\n  c\r\nContent-Length: 5\r\n\r\n";
  const LoopbackServer server(alwaysAnswer(head + std::string("a\0b\r\n", 5)));
  const auto exchange = send(requestFor(server.url("/")));
  ASSERT_TRUE(exchange.response && exchange.data && !exchange.error);
  EXPECT_EQ(exchange.response->statusCode, 404);
  EXPECT_EQ(exchange.response->headers.find("X-THING")->second, "a, b c");
  EXPECT_FALSE(exchange.response->headers.contains("X-Early"));
  EXPECT_EQ(exchange.data->text(), std::string_view("a\0b\r\n", 5));
}

/// Redirects "/from" with a status, answers everything else.
Handler redirecting(int status, const std::string& location) {
  return [=](const ReceivedRequest& request, Peer& peer) {
    const bool redirects = request.target == "/from";
    peer.send(redirects ? httpAnswer(status, "moved", "Location: " + location + "\r\n")
                        : httpAnswer(200, "there"));
  };
}

TEST(URLConnection, FollowsRedirectsWithinTheOrigin) {
  const struct {
    int status;
    const char *method, *methodThen;
    bool keepsBody;
  } cases[] = {{301, "POST", "GET", false},
               {303, "PUT", "GET", false},
               {301, "PUT", "PUT", true},
               {307, "POST", "POST", true},
               {302, "GET", "GET", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.method) + " " + std::to_string(c.status));
    const LoopbackServer server(redirecting(c.status, "to?x=1"));
    URLRequest request = requestFor(server.url("/from"), c.method);
    request.headers = {{"X-Secret", "s"}, {"Content-Type", "text/plain"}};
    if (request.method != "GET") request.body.emplace().append("the body");
    const auto exchange = send(request);
    ASSERT_EQ(problemOf(exchange), "");
    EXPECT_EQ(exchange.data->text(), "there");
    const auto then = server.requests().at(1);
    EXPECT_EQ(then->method, c.methodThen);
    EXPECT_EQ(then->target, "/to?x=1");
    EXPECT_EQ(then->body(), c.keepsBody ? "the body" : "");
    EXPECT_EQ(then->header("X-Secret"), "s");
    EXPECT_EQ(then->header("Content-Type").has_value(), c.keepsBody || request.method == "GET");
    EXPECT_EQ(server.connectionCount(), 1u);
  }
}

TEST(URLConnection, AnyOtherRedirectIsTheAnswer) {
  const LoopbackServer elsewhere(alwaysAnswer(httpAnswer(200)));
  const std::string samePort = std::to_string(elsewhere.port());
  for (const std::string& location :
       {elsewhere.url("/"), "//localhost:" + samePort + "/", std::string("https://127.0.0.1/"),
        std::string("ftp://127.0.0.1/"), std::string("file:///etc/passwd"), std::string("a b"),
        std::string()}) {
    SCOPED_TRACE(location);
    const LoopbackServer server(redirecting(302, location));
    const auto exchange = send(requestFor(server.url("/from")));
    ASSERT_TRUE(exchange.response);
    EXPECT_EQ(exchange.response->statusCode, 302);
    EXPECT_EQ(exchange.data->text(), "moved");
    EXPECT_EQ(server.requests().size(), 1u);
  }
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST(URLConnection, GivesUpAfterSixteenRedirects) {
  std::atomic<int> left = 16;
  const LoopbackServer server([&](const ReceivedRequest&, Peer& peer) {
    peer.send(left-- > 0 ? httpAnswer(307, "", "Location: /again\r\n") : httpAnswer(200));
  });
  EXPECT_EQ(send(requestFor(server.url("/"))).response->statusCode, 200);
  left = 17;
  const auto exchange = send(requestFor(server.url("/")));
  EXPECT_FALSE(exchange.response);
  EXPECT_EQ(exchange.error->code, -1007);
  EXPECT_EQ(server.requests().size(), 17u + 17u);
}

TEST(URLConnection, KeepsCookiesByOriginInMemoryAndForAllThreads) {
  const auto handler = alwaysAnswer(httpAnswer(200, "", "Set-Cookie: session=1; Path=/\r\n"));
  const LoopbackServer first(handler), second(handler);
  for (const LoopbackServer* server : {&first, &second}) {
    send(requestFor(server->url("/")));
    EXPECT_FALSE(server->requests().at(0)->header("Cookie")) << "another port, another origin";
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 10; ++n) send(requestFor(first.url("/again")));
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(first.requests().size(), 81u);
  for (std::size_t i = 1; i < 81; ++i) {
    EXPECT_EQ(first.requests().at(i)->header("Cookie"), "session=1");
  }
}

TEST(URLConnection, GoesThroughTheProxyOfTheEnvironment) {
  const LoopbackServer proxy(alwaysAnswer(httpAnswer(200, "by proxy")));
  const ScopedEnvironment http("http_proxy", proxy.url().c_str());
  const auto exchange = send(requestFor("http://service.invalid/path"));
  ASSERT_EQ(problemOf(exchange), "");
  EXPECT_EQ(exchange.data->text(), "by proxy");
  EXPECT_EQ(proxy.requests().at(0)->target, "http://service.invalid/path");
  const ScopedEnvironment none("no_proxy", "127.0.0.1");
  const LoopbackServer server(alwaysAnswer(httpAnswer(200, "directly")));
  EXPECT_EQ(send(requestFor(server.url("/"))).data->text(), "directly");
}

TEST(URLConnection, RefusesToSendLinesThatNobodyMeant) {
  URLRequest inValue = requestFor("http://127.0.0.1:1/");
  inValue.headers = {{"X-Secret", "canary\r\nX-More: 1"}};
  URLRequest inName = requestFor("http://127.0.0.1:1/");
  inName.headers = {{"X: y\r\nZ", "canary"}};
  const URLRequest inMethod = requestFor("http://127.0.0.1:1/", "GET / HTTP/1.1\r\n");
  for (const URLRequest& request : {inValue, inName, inMethod}) {
    const auto exchange = send(request);
    EXPECT_FALSE(exchange.response);
    ASSERT_TRUE(exchange.error);
    EXPECT_EQ(exchange.error->code, -1);
    EXPECT_THAT(exchange.error->description(), Not(HasSubstr("canary")));
  }
}

}  // namespace
}  // namespace foundation
