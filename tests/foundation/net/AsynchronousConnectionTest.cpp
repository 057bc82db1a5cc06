#include "tests/foundation/net/Connections.h"

namespace foundation {
namespace {

/// Records its calls.
struct Recorder : URLConnection::Delegate {
  std::vector<std::string> calls;
  std::string body;
  std::optional<Error> error;
  std::vector<ProtectionSpace> questions;
  std::function<void(URLConnection&, const std::string& call)> onCall;
  std::thread::id home = std::this_thread::get_id();
  int ends = 0;

  void note(URLConnection& connection, const std::string& call) {
    EXPECT_EQ(std::this_thread::get_id(), home);
    EXPECT_EQ(ends, 0) << call << " after the end";
    if (calls.empty() || calls.back() != call) calls.push_back(call);
    if (call == "error" || call == "finish") ++ends;
    if (onCall) onCall(connection, call);
  }
  void connectionDidReceiveResponse(URLConnection& c, const HTTPResponse&) override {
    note(c, "response");
  }
  void connectionDidReceiveData(URLConnection& c, Bytes data) override {
    note(c, "data");
    body += textOf(data);
  }
  void connectionDidFailWithError(URLConnection& c, const Error& e) override {
    note(c, "error");
    error = e;
  }
  void connectionDidFinishLoading(URLConnection& c) override { note(c, "finish"); }
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

TEST(AsynchronousConnection, EndsOnceWhateverHappens) {
  const std::string half = "send HTTP/1.1 200 OK\\r\\nContent-Length: 10\\r\\n\\r\\nfive! then ";
  const std::vector<std::string> late = {"response", "data", "error"}, early = {"error"};
  const std::tuple<std::string, long, std::vector<std::string>> cases[] = {
      {"201 saying body", 0, {"response", "data", "finish"}},
      {"reset", -1005, early},
      {half + "close", -1005, late},
      {half + "stall", -1001, late},
      {"302 with Location: /", -1007, early}};
  for (const auto& [steps, code, calls] : cases) {
    SCOPED_TRACE(steps);
    const ScriptedServer server({"/=" + steps});
    URLRequest request = requestFor(server.url());
    request.idleTimeout = 300ms;
    const auto recorder = runToEnd(request);
    EXPECT_EQ(recorder->calls, calls);
    EXPECT_EQ(recorder->error ? recorder->error->code : 0, code);
    EXPECT_EQ(recorder.use_count(), 1) << "the delegate is let go at the end";
  }
  EXPECT_EQ(runToEnd(URLRequest())->error->code, -1002);
}

TEST_F(AsynchronousTLS, CancelledFromACallItIsSilentFromThenOn) {
  const ScriptedServer server({"/=200 saying <3000000*x>"}, identity_);
  for (const std::string at : {"question", "response", "data"}) {
    SCOPED_TRACE(at);
    const auto recorder = std::make_shared<Recorder>();
    recorder->onCall = [&](URLConnection& connection, const std::string& call) {
      if (at == call) connection.cancel();
    };
    URLConnection connection(requestFor(server.url()), recorder);
    connection.start();
    EXPECT_TRUE(eventuallyOnMainLoop([&] { return recorder.use_count() == 1; }));
    EXPECT_EQ(recorder->calls.back(), at);
    EXPECT_EQ(server.requests().empty(), at == "question");
  }
}

TEST(AsynchronousConnection, CancelledFromOtherThreadsItEndsAtMostOnce) {
  const ScriptedServer server({"/=200 saying body"});
  for (int round = 0; round < 50; ++round) {
    const auto recorder = std::make_shared<Recorder>();
    URLConnection connection(requestFor(server.url()), recorder);
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
    const char *steps, *method, *realm;
  } cases[] = {{"401 with WWW-Authenticate: Basic realm=\"a \\\"b\\\"\"",
                "NSURLAuthenticationMethodHTTPBasic", "a \"b\""},
               {"407 with proxy-authenticate: digest nonce=1, realm=x",
                "NSURLAuthenticationMethodHTTPDigest", "x"},
               {"401", nullptr, nullptr},
               {"403 with WWW-Authenticate: Basic", nullptr, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.steps);
    const ScriptedServer server({std::string("/=") + c.steps});
    const auto recorder = runToEnd(requestFor(server.url()));
    EXPECT_EQ(recorder->calls.back(), "finish");
    ASSERT_EQ(recorder->questions.size(), c.method ? 1u : 0u);
    if (!c.method) continue;
    EXPECT_EQ(recorder->questions[0].host, "127.0.0.1");
    EXPECT_EQ(std::to_string(recorder->questions[0].port), server.port());
    EXPECT_EQ(recorder->questions[0].authenticationMethod, c.method);
    EXPECT_EQ(recorder->questions[0].realm, c.realm);
    EXPECT_FALSE(recorder->questions[0].hasServerTrust);
  }
}

TEST(AsynchronousConnection, ATunnelThatAsksForAPasswordIsAChallengeAndShownNothing) {
  const ScriptedServer proxy({"*:443=407 with Proxy-Authenticate: Basic realm=\"p\""});
  const ScopedEnvironment https("https_proxy", proxy.url("").c_str());
  URLRequest request = postTo("https://service.invalid/path", 10);
  request.headers = {{"X-Secret", "canary"}};
  const auto recorder = runToEnd(request);
  EXPECT_THAT(recorder->calls, ElementsAre("question", "error"));
  EXPECT_FALSE(recorder->questions.at(0).hasServerTrust);
  EXPECT_EQ(recorder->error->code, -1004);
  EXPECT_THAT(proxy.requests(), AllOf(SizeIs(1), Each(Not(HasSubstr("canary")))));
}

TEST(AsynchronousConnection, ABodyThatBecomesTooLongIsRefusedOnEitherPath) {
  constexpr std::size_t limit = std::size_t{16} << 20;
  for (const std::size_t size : {limit, limit + 1}) {
    const std::string body =
        outputOf({"sh", "-c", "head -c $0 /dev/zero | gzip", std::to_string(size)});
    const ScriptedServer server({"/=200 with Content-Encoding: gzip saying " + escaped(body)});
    const auto synchronous = send(requestFor(server.url()));
    const auto asynchronous = runToEnd(requestFor(server.url()));
    EXPECT_EQ(synchronous.data.has_value(), size == limit);
    EXPECT_LE(asynchronous->body.size(), limit);
    for (const auto& error : {synchronous.error, asynchronous->error}) {
      EXPECT_EQ(error ? error->code : 0, size == limit ? 0 : -1103);
    }
  }
}

TEST_F(AsynchronousTLS, AsksOncePerConnectionBeforeTheRequest) {
  const ScriptedServer server({"/=200 saying {client}"}, identity_);
  std::set<std::string> connections;
  std::vector<ProtectionSpace> questions;
  for (int round = 0; round < 3; ++round) {
    const auto recorder = runToEnd(requestFor(server.url()));
    connections.insert(recorder->body);
    EXPECT_EQ(recorder->calls.front(), round == 0 ? "question" : "response");
    std::ranges::copy(recorder->questions, std::back_inserter(questions));
  }
  EXPECT_THAT(connections, SizeIs(1)) << "a connection is used again";
  ASSERT_THAT(questions, SizeIs(1));
  EXPECT_TRUE(questions[0].hasServerTrust);
  EXPECT_EQ(questions[0].host, "localhost");
}

TEST_F(AsynchronousTLS, AYesTrustsNobody) {
  const TemporaryFolder unknown;
  writeServerCertificate(unknown.path());
  const ScriptedServer server({"/=200"}, unknown / "localhost.pem");
  const auto recorder = runToEnd(postTo(server.url(), 10));
  EXPECT_THAT(recorder->calls, ElementsAre("question", "error"));
  EXPECT_EQ(recorder->error->code, -1202);
  EXPECT_THAT(server.requests(), IsEmpty());
}

}  // namespace
}  // namespace foundation
