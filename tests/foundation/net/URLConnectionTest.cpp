#include "tests/foundation/net/Connections.h"

namespace foundation {
namespace {

using URLConnectionTLS = WithTrustedAuthority;

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
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"GET", false, ""},
      {"PUT", true, "Content-Length: 300013\r\n"},
      {"REPORT", true, "Content-Length: 300013\r\n"},
      {"POST", false, "Content-Length: 0\r\n"},
      {"DELETE", false, ""},
      {"HEAD", false, ""}};
  const ScriptedServer server({"/*=200"});
  for (const auto& [method, hasBody, length] : cases) {
    URLRequest request = requestFor(server.url("/a/../b//c%2F?q=a%20b#part"), method);
    request.headers = {{"X-Key", "value"}, {"X-Empty", ""}, {"Content-Length", "7"}};
    std::string body;
    if (hasBody) body = pieceOfEveryKind(request.body.emplace());
    ASSERT_EQ(answerTo(request), "");
    EXPECT_EQ(server.requests().back(),
              method + (" /a/../b//c%2F?q=a%20b HTTP/1.1\r\nHost: 127.0.0.1:" + server.port()) +
                  "\r\nAccept-Encoding: gzip, deflate\r\n" + "X-Empty:\r\nX-Key: value\r\n" +
                  length + "\r\n" + body);
  }
}

TEST(URLConnection, GivesBackStatusFieldsAndBytes) {
  const ScriptedServer server(
      {"/=send HTTP/1.1 100 Continue\\r\\nX-Early: 1\\r\\n\\r\\nHTTP/1.1 404 Not Found\\r\\n"
       "x-thing: a\\r\\nX-Thing: b\\r\\n  c\\r\\nContent-Length: 5\\r\\n\\r\\na\\x00b\\r\\n"});
  const auto exchange = send(requestFor(server.url()));
  ASSERT_TRUE(exchange.response && exchange.data && !exchange.error);
  EXPECT_EQ(exchange.response->statusCode, 404);
  EXPECT_EQ(exchange.response->headers.find("X-THING")->second, "a, b c");
  EXPECT_FALSE(exchange.response->headers.contains("X-Early"));
  EXPECT_EQ(exchange.data->text(), std::string_view("a\0b\r\n", 5));
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
    const ScriptedServer server(
        {"/from=" + std::to_string(c.status) + " with Location: to?{client} saying moved",
         "/to*=200 saying {target} {client}"});
    URLRequest request = requestFor(server.url("/from"), c.method);
    request.headers = {{"X-Secret", "s"}, {"Content-Type", "text/plain"}};
    if (request.method != "GET") request.body.emplace().append("the body");
    const std::string answer = answerTo(request);
    const std::string client = answer.substr(answer.find(' ') + 1);
    EXPECT_EQ(answer, "/to?" + client + " " + client) << "by the same connection";
    const std::string then = server.requests().at(1);
    EXPECT_THAT(then, StartsWith(c.methodThen + std::string(" /to?")));
    EXPECT_THAT(then, EndsWith(c.keepsBody ? "\r\n\r\nthe body" : "\r\n\r\n"));
    EXPECT_THAT(then, HasSubstr("\r\nX-Secret: s\r\n"));
    EXPECT_EQ(then.find("Content-Type") != std::string::npos,
              c.keepsBody || request.method == "GET");
  }
}

TEST(URLConnection, AnyOtherRedirectIsTheAnswer) {
  const ScriptedServer elsewhere({"*=200"});
  std::vector<std::string> behaviours;
  for (const std::string& location :
       {elsewhere.url(), "//localhost:" + elsewhere.port() + "/", std::string("https://127.0.0.1/"),
        std::string("ftp://127.0.0.1/"), std::string("file:///etc/passwd"), std::string("a b"),
        std::string()}) {
    behaviours.push_back("/" + std::to_string(behaviours.size()) +
                         "=302 with Location: " + location + " saying moved");
  }
  const ScriptedServer server(behaviours);
  for (std::size_t i = 0; i < behaviours.size(); ++i) {
    EXPECT_EQ(answerTo(requestFor(server.url("/" + std::to_string(i)))), "moved") << behaviours[i];
    EXPECT_EQ(server.requests().size(), i + 1);
  }
  EXPECT_THAT(elsewhere.requests(), IsEmpty());
}

TEST(URLConnection, GivesUpAfterSixteenRedirects) {
  const std::string again = "307 with Location: {target} next ";
  const ScriptedServer server({"/16=" + repeated(again, 16) + "200 saying there",
                               "/17=" + repeated(again, 17) + "200 saying there"});
  EXPECT_EQ(answerTo(requestFor(server.url("/16"))), "there");
  EXPECT_THAT(answerTo(requestFor(server.url("/17"))), HasSubstr("Code=-1007"));
  EXPECT_EQ(server.requests().size(), 17u + 17u);
}

TEST(URLConnection, KeepsCookiesByOriginInMemoryAndForAllThreads) {
  const std::vector<std::string> giveOne = {"/=200 with Set-Cookie: session=1; Path=/"};
  const ScriptedServer first(giveOne), second(giveOne);
  for (const ScriptedServer* server : {&first, &second}) {
    send(requestFor(server->url()));
    EXPECT_THAT(server->requests().at(0), Not(HasSubstr("Cookie"))) << "another port";
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 10; ++n) send(requestFor(first.url()));
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto requests = first.requests();
  ASSERT_THAT(requests, SizeIs(81));
  EXPECT_THAT(std::vector(requests.begin() + 1, requests.end()),
              Each(HasSubstr("\r\nCookie: session=1\r\n")));
}

TEST(URLConnection, RefusesToSendLinesThatNobodyMeant) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"GET", "X-Secret", "canary\r\nX-More: 1"},
      {"GET", "X: y\r\nZ", "canary"},
      {"GET / HTTP/1.1\r\n", "X-Secret", "canary"}};
  for (const auto& [method, name, value] : cases) {
    URLRequest request = requestFor("http://127.0.0.1:1/", method);
    request.headers = {{name, value}};
    EXPECT_THAT(answerTo(request), AllOf(HasSubstr("Code=-1 "), Not(HasSubstr("canary"))));
  }
}

TEST(URLConnection, AServerThatFallsSilentIsTimedOut) {
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
TEST(URLConnection, BytesThatTrickleAreNoSilence) {
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
