#include "tests/foundation/net/Connections.h"

namespace foundation {
namespace {

/// Records its calls.
struct Recorder : URLConnection::Delegate {
  std::vector<std::string> calls;
  std::string body;
  std::optional<HTTPResponse> response;
  std::optional<Error> error;
  std::vector<ProtectionSpace> questions;
  std::function<void(URLConnection&, const char* call)> onCall;
  std::thread::id home = std::this_thread::get_id();
  int ends = 0;

  void note(URLConnection& connection, const char* call) {
    EXPECT_EQ(std::this_thread::get_id(), home);
    EXPECT_EQ(ends, 0) << call << " after the end";
    if (calls.empty() || calls.back() != call) calls.emplace_back(call);
    if (onCall) onCall(connection, call);
  }
  void connectionDidReceiveResponse(URLConnection& c, const HTTPResponse& r) override {
    note(c, "response");
    response = r;
  }
  void connectionDidReceiveData(URLConnection& c, Bytes data) override {
    note(c, "data");
    body += textOf(data);
  }
  void connectionDidFailWithError(URLConnection& c, const Error& e) override {
    note(c, "error");
    error = e;
    ++ends;
  }
  void connectionDidFinishLoading(URLConnection& c) override {
    note(c, "finish");
    ++ends;
  }
  bool connectionCanAuthenticateAgainstProtectionSpace(URLConnection& c,
                                                       const ProtectionSpace& space) override {
    note(c, "question");
    questions.push_back(space);
    return true;
  }
};

std::shared_ptr<Recorder> runToEnd(const URLRequest& request) {
  auto recorder = std::make_shared<Recorder>();
  URLConnection(request, recorder).start();  // the exchange outlives the object
  EXPECT_TRUE(eventuallyOnMainLoop([&] { return recorder->ends > 0; }));
  return recorder;
}

using AsynchronousTLS = WithTrustedAuthority;

TEST(AsynchronousConnection, TellsResponseDataAndEnd) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(201, "the body", "X-Field: value\r\n")));
  const auto recorder = runToEnd(requestFor(server.url("/")));
  EXPECT_THAT(recorder->calls, ElementsAre("response", "data", "finish"));
  EXPECT_EQ(recorder->response->statusCode, 201);
  EXPECT_EQ(recorder->response->headers.at("x-field"), "value");
  EXPECT_EQ(recorder->body, "the body");
  EXPECT_EQ(recorder.use_count(), 1) << "the delegate is let go at the end";
}

TEST(AsynchronousConnection, EndsInOneErrorForEveryFault) {
  const auto halfThen = [](void (Peer::*end)()) -> Handler {
    return [=](const auto&, Peer& peer) {
      peer.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfive!");
      (peer.*end)();
    };
  };
  const std::vector<std::string> late = {"response", "data", "error"}, early = {"error"};
  const std::tuple<Handler, long, std::vector<std::string>> faults[] = {
      {[](const auto&, Peer& peer) { peer.reset(); }, -1005, early},
      {halfThen(&Peer::close), -1005, late},
      {halfThen(&Peer::stall), -1001, late},
      {alwaysAnswer(httpAnswer(302, "", "Location: /\r\n")), -1007, early}};
  for (const auto& [handler, code, calls] : faults) {
    const LoopbackServer server(handler);
    URLRequest request = requestFor(server.url("/"));
    request.idleTimeout = 300ms;
    const auto recorder = runToEnd(request);
    EXPECT_EQ(recorder->calls, calls);
    EXPECT_EQ(recorder->error->code, code) << recorder->error->description();
  }
  EXPECT_EQ(runToEnd(URLRequest())->error->code, -1002);
}

TEST_F(AsynchronousTLS, CancelledFromACallItIsSilentFromThenOn) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200, std::string(3'000'000, 'x'))),
                              tls(authority_));
  for (const std::string at : {"question", "response", "data"}) {
    SCOPED_TRACE(at);
    const auto recorder = std::make_shared<Recorder>();
    recorder->onCall = [&](URLConnection& connection, const char* call) {
      if (at == call) connection.cancel();
    };
    URLConnection connection(requestFor(server.url("/")), recorder);
    connection.start();
    EXPECT_TRUE(eventuallyOnMainLoop([&] { return recorder.use_count() == 1; }));
    EXPECT_EQ(recorder->calls.back(), at);
    EXPECT_EQ(recorder->ends, 0);
    EXPECT_EQ(server.requests().empty(), at == "question");
  }
}

TEST(AsynchronousConnection, CancelledFromOtherThreadsItEndsAtMostOnce) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200, "body")));
  for (int round = 0; round < 50; ++round) {
    const auto recorder = std::make_shared<Recorder>();
    URLConnection connection(requestFor(server.url("/")), recorder);
    connection.start();
    std::thread other([&] { connection.cancel(); });
    EXPECT_TRUE(eventuallyOnMainLoop([&] { return recorder.use_count() == 1; }));
    other.join();
    EXPECT_LE(recorder->ends, 1);
    EXPECT_FALSE(recorder->error);
  }
}

TEST(AsynchronousConnection, AsksOnlyForRealChallenges) {
  const struct {
    int status;
    const char *field, *method, *realm;
  } cases[] = {{401, "WWW-Authenticate: Basic realm=\"a \\\"b\\\"\"\r\n",
                "NSURLAuthenticationMethodHTTPBasic", "a \"b\""},
               {407, "proxy-authenticate: digest nonce=1, realm=x\r\n",
                "NSURLAuthenticationMethodHTTPDigest", "x"},
               {401, "", nullptr, nullptr},
               {403, "WWW-Authenticate: Basic\r\n", nullptr, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.field);
    const LoopbackServer server(alwaysAnswer(httpAnswer(c.status, "", c.field)));
    const auto recorder = runToEnd(requestFor(server.url("/")));
    EXPECT_EQ(recorder->response->statusCode, c.status);
    ASSERT_EQ(recorder->questions.size(), c.method ? 1u : 0u);
    if (!c.method) continue;
    EXPECT_EQ(recorder->questions[0].host, "127.0.0.1");
    EXPECT_EQ(recorder->questions[0].port, server.port());
    EXPECT_EQ(recorder->questions[0].authenticationMethod, c.method);
    EXPECT_EQ(recorder->questions[0].realm, c.realm);
    EXPECT_FALSE(recorder->questions[0].hasServerTrust);
  }
}

TEST(AsynchronousConnection, ATunnelThatAsksForAPasswordIsAChallengeAndShownNothing) {
  const LoopbackServer proxy(
      alwaysAnswer(httpAnswer(407, "", "Proxy-Authenticate: Basic realm=\"p\"\r\n")));
  const ScopedEnvironment https("https_proxy", proxy.url().c_str());
  const auto recorder = runToEnd(secretPostTo("https://service.invalid/path", 10));
  EXPECT_THAT(recorder->calls, ElementsAre("question", "error"));
  EXPECT_FALSE(recorder->questions.at(0).hasServerTrust);
  EXPECT_EQ(recorder->error->code, -1004);
  EXPECT_THAT(
      recorder->error->localizedDescription(),
      HasSubstr("the proxy 127.0.0.1 port " + std::to_string(proxy.port()) + " answered 407"));
  for (const auto& received : proxy.requests())
    EXPECT_THAT(received->raw, Not(HasSubstr("canary")));
}

TEST(AsynchronousConnection, ABodyThatBecomesTooLongIsRefusedOnEitherPath) {
  constexpr std::size_t limit = std::size_t{16} << 20;
  for (const std::size_t size : {limit, limit + 1}) {
    const bool fits = size == limit;
    const std::string body =
        outputOf({"sh", "-c", "head -c $0 /dev/zero | gzip", std::to_string(size)});
    ASSERT_LT(body.size(), 20'000u);
    const LoopbackServer server(alwaysAnswer(httpAnswer(200, body, "Content-Encoding: gzip\r\n")));
    const auto synchronous = send(requestFor(server.url("/")));
    const auto asynchronous = runToEnd(requestFor(server.url("/")));
    EXPECT_EQ(synchronous.data.has_value(), fits);
    EXPECT_LE(asynchronous->body.size(), limit);
    for (const auto& error : {synchronous.error, asynchronous->error}) {
      ASSERT_EQ(error.has_value(), !fits);
      if (fits) continue;
      EXPECT_EQ(error->code, -1103);
      EXPECT_THAT(error->localizedDescription(), HasSubstr("sent a body of more than 16 MiB"));
    }
  }
}

TEST_F(AsynchronousTLS, AsksOncePerConnectionBeforeTheRequest) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200, "safe")), tls(authority_));
  std::size_t questions = 0;
  for (int round = 0; round < 3; ++round) {
    const auto recorder = runToEnd(requestFor(server.url("/")));
    EXPECT_EQ(recorder->body, "safe");
    questions += recorder->questions.size();
    for (const ProtectionSpace& space : recorder->questions) {
      EXPECT_TRUE(space.hasServerTrust);
      EXPECT_EQ(space.host, "localhost");
      EXPECT_EQ(recorder->calls.front(), "question");
    }
  }
  EXPECT_EQ(questions, server.connectionCount());
  EXPECT_EQ(server.connectionCount(), 1u) << "a connection is used again";
}

TEST_F(AsynchronousTLS, AYesTrustsNobody) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)), tls(TLSAuthority()));
  const auto recorder = runToEnd(secretPostTo(server.url("/"), 10));
  EXPECT_THAT(recorder->calls, ElementsAre("question", "error"));
  EXPECT_EQ(recorder->error->code, -1202);
  EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace foundation
