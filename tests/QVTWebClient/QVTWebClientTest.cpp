#include <future>

#include "QVTWebClient/QVTWebAPIClientEndpoints.h"
#include "QVTWebClient/QVTWebClient.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Test.h"

namespace {

using foundation::RunLoop;
using foundation::URL;
using Completion = QVTWebClient::Completion;
using SharedRequest = std::shared_ptr<QVTWebRequest>;
using Response = std::shared_ptr<QVTWebResponse>;
using Transaction = QVTWebClientTransaction;

const Completion kIgnore = [](const Response&) {};

std::shared_ptr<QVTWebClient> clientFor(const std::string& url) {
  return QVTWebClient::initWithURL(URL::withString(url));
}

SharedRequest getRequest(const std::string& path = "/") {
  return QVTWebRequest::requestWithMethodPath("GET", path);
}
SharedRequest requestFor(const std::string& url) {
  const auto request = getRequest("unused");
  request->setURL(URL::withString(url));
  return request;
}

/// Calls `start` with a completion and runs the loop until that was called, on another thread.
Response responseOf(const std::function<void(Completion)>& start) {
  Response result;
  const auto main = std::this_thread::get_id();
  start([&](const Response& response) {
    EXPECT_NE(std::this_thread::get_id(), main);
    RunLoop::main().perform([&, response] { result = response; });
  });
  EXPECT_TRUE(eventuallyOnMainLoop([&] { return result != nullptr; }));
  return result;
}
Response asynchronously(const SharedRequest& request) {
  const auto transaction = Transaction::transactionWithRequest(request);
  const Response result = responseOf([&](const Completion& completion) {
    transaction->startWithCompletionHandler([=](const Response& response) {
      EXPECT_TRUE(transaction->queue().isCurrent());
      completion(response);
    });
  });
  transaction->queue().sync([] {});
  EXPECT_FALSE(transaction->completionHandler());
  return result;
}
Response synchronously(const SharedRequest& request) {
  Response result;
  Transaction::transactionWithRequest(request)->syncStartWithCompletionHandler(
      [&](const Response& response) { result = response; });
  return result;
}

TEST(QVTWebClient, ResolvesPathsAgainstItsBaseAndAddsItsHeaders) {
  const ScriptedServer server({"/*=200"});
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"/v1/", "api/items", "/v1/api/items"},
      {"/v1/", "/items", "/items"},
      {"/v1", "items?q=1", "/items?q=1"},
      {"", "spi/v1", "/spi/v1"}};
  for (const auto& [base, path, target] : cases) {
    const auto client = clientFor(server.url(base));
    client->addValueForHeader("client", "X-Both");
    client->addValueForHeader("first", "X-Client");
    client->addValueForHeader("second", "X-Client");
    const auto request = getRequest(path);
    request->addValueForHTTPHeaderField("request", "x-both");
    client->syncStartRequestCompletion(request, kIgnore);
    const std::string received = server.requests().back();
    EXPECT_THAT(received, StartsWith("GET " + std::string(target) + " HTTP/1.1\r\n"));
    EXPECT_THAT(received, HasSubstr("\r\nAccept: application/json, application/x-plist\r\n"));
    EXPECT_THAT(received, HasSubstr("\r\nx-both: request\r\nX-Client: second\r\n"));
  }
  const auto own = getRequest("ignored");
  own->setURL(URL::withString(server.url("/own")));
  own->addValueForHTTPHeaderField("text/html", "Accept");
  clientFor("http://other.invalid/")->syncStartRequestCompletion(own, kIgnore);
  EXPECT_THAT(server.requests().back(), AllOf(StartsWith("GET /own "), HasSubstr(": text/html\r")));
}

TEST(QVTWebClient, GetsAndPostsAndChecksTheStatus) {
  const ScriptedServer server({"/*=200"});
  const auto client = clientFor(server.url("/v1/"));
  responseOf([&](Completion completion) {
    client->getURLCompletion(*URL::withString(server.url("/else?x=1")), completion);
  });
  responseOf([&](Completion completion) {
    client->postFormDataToPathCompletion({{"a", "1"}}, "form", completion);
  });
  EXPECT_THAT(server.requests(),
              ElementsAre(StartsWith("GET /else?x=1 "),
                          AllOf(StartsWith("POST /v1/form "), HasSubstr("name=\"a\""))));
  for (const std::uint64_t expected : {200, 201}) {
    const auto response = responseOf([&](Completion completion) {
      client->startRequestExpectingResponseCompletion(getRequest(), expected, completion);
    });
    EXPECT_EQ(response->error().has_value(), expected != 200);
  }
}

TEST(QVTWebClient, CompletesHundredsAtOnceOnceEachAndMayBeUsedMeanwhile) {
  constexpr std::size_t kCount = 300;
  const ScriptedServer server(
      {"*7=reset", "*=200 with Content-Type: application/json saying [\"{target}\"]"});
  auto client = clientFor(server.url());
  std::array<std::atomic<int>, kCount> calls{};
  for (std::size_t i = 0; i < kCount; ++i) {
    const std::string path = "/" + std::to_string(i);
    client->getPathCompletion(path, [&, i, path, same = client.get()](const Response& response) {
      const bool fails = i % 10 == 7;
      EXPECT_EQ(response->wasSuccessful(), !fails);
      EXPECT_EQ(response->body(), fails ? std::nullopt : std::optional(Value(Array{path})));
      same->addValueForHeader("1", "X");
      same->syncStartRequestCompletion(getRequest("/again"), [&](const Response& second) {
        EXPECT_TRUE(second->wasSuccessful());
        ++calls[i];
      });
    });
  }
  // The exchanges keep the client; the last of them destroys it, on its own queue.
  const std::weak_ptr<QVTWebClient> gone = client;
  client.reset();
  EXPECT_TRUE(eventuallyOnMainLoop([&] {
    if (!gone.expired()) RunLoop::main().perform([] {});
    return gone.expired();
  }));
  for (const auto& count : calls) EXPECT_EQ(count, 1);
}

TEST(QVTWebClient, ASynchronousStartHoldsTheClientOnTheCallersThread) {
  const ScriptedServer server({"/=200"});
  const auto client = clientFor(server.url());
  const auto caller = std::this_thread::get_id();
  std::future<void> other;
  client->syncStartRequestCompletion(getRequest(), [&](const Response&) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    other = std::async(std::launch::async, [&] { client->addValueForHeader("1", "X"); });
    EXPECT_EQ(other.wait_for(50ms), std::future_status::timeout);
  });
  EXPECT_EQ(other.wait_for(kDeadline), std::future_status::ready);
}

TEST(QVTWebClientTransaction, DecodesTheBodyOfAnAsynchronousAnswer) {
  const std::string list = plist({{"a", 1}});
  const Value decoded = Dictionary{{"a", 1}};
  const std::tuple<std::string, std::string, std::optional<Value>> cases[] = {
      {"application/json; charset=utf-8", "{\"a\":1}", decoded},
      {"application/json, application/x-plist", list, decoded},
      {"text/html", "{\"a\":1}", Value(Data(std::string("{\"a\":1}")))},
      {"application/json", "{\"a\":", std::nullopt},
      {"application/json", "\"text\"", std::nullopt},
      {"application/x-plist", "<plist><dict>", std::nullopt},
      {"application/json", "", std::nullopt}};
  for (const auto& [type, body, expected] : cases) {
    SCOPED_TRACE(type + ": " + body);
    const ScriptedServer server({"/=200 with Content-Type: " + type + " saying " + escaped(body)});
    const auto response = asynchronously(requestFor(server.url()));
    EXPECT_EQ(response->body(), expected);
    EXPECT_EQ(response->wasSuccessful(), body != "<plist><dict>");
    EXPECT_EQ(textOf(response->responseData()), body);
  }
}

TEST(QVTWebClientTransaction, ASynchronousBodyIsRaw) {
  const ScriptedServer server({"/*=404 with Content-Type: application/json saying {\"a\":1}"});
  const auto request = requestFor(server.url());
  request->setParameters(QVTWebRequest::Parameters{{"q", "a b"}});
  const auto response = synchronously(request);
  EXPECT_FALSE(response->wasSuccessful());
  EXPECT_EQ(response->description(),
            "{request: " + server.url("/?q=a%20b") +
                ", status: 404, body: <7b226122 3a317d>, error: (null), headers: {\n"
                "    \"Content-Length\" = 7;\n    \"Content-Type\" = application/json;\n}}");
}

TEST(QVTWebClientTransaction, WhatIsNotSentReachesTheHandler) {
  const auto ambiguous = requestFor("http://127.0.0.1:1/");
  ambiguous->addValueForFormField("\r\n--AaB03x", "a");
  for (const auto& [request, code] : {std::pair(getRequest(), -1002), {ambiguous, -3}}) {
    for (const auto& response : {asynchronously(request), synchronously(request)}) {
      EXPECT_EQ(response->error()->code, code);
      EXPECT_EQ(response->statusCode(), 0u);
      EXPECT_FALSE(response->body());
    }
  }
}

TEST(QVTWebClientTransaction, AChallengeEndsAnAsynchronousExchange) {
  const ScriptedServer server({"/=401 with WWW-Authenticate: Basic realm=\"x\" saying who?"});
  const auto request = requestFor(server.url());
  request->setProtectionSpaceHandler([](const auto&) { return true; });
  const auto refused = asynchronously(request);
  ASSERT_TRUE(refused->error());
  EXPECT_EQ(refused->error()->domain, "QVTWebClientErrorDomain");
  EXPECT_EQ(refused->error()->code, -2);
  EXPECT_FALSE(synchronously(request)->error());
}

TEST(QVTWebResponse, CountsAsSuccessOnlyFrom200To299WithoutError) {
  for (const auto& [code, expected] :
       {std::pair{199u, false}, {200u, true}, {299u, true}, {300u, false}}) {
    QVTWebResponse response;
    response.setStatusCode(code);
    EXPECT_EQ(response.wasSuccessful(), expected) << code;
    response.setError(Error{.domain = "d", .code = 0, .userInfo = {}});
    EXPECT_FALSE(response.wasSuccessful());
  }
}

TEST(QVTWebClientDeathTest, StopsForFaultsOfTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto twice = Transaction::transactionWithRequest(getRequest());
  EXPECT_DEATH(twice->complete(), "\\(_completionHandler\\)");
  twice->syncStartWithCompletionHandler(kIgnore);
  EXPECT_DEATH(twice->syncStartWithCompletionHandler(kIgnore), "\\(!_connection\\)");
  EXPECT_DEATH(twice->syncStartConnection(), "\\(_connection == nil\\)");
  EXPECT_DEATH(twice->startConnection(), "\\(_connection == nil\\)");
  EXPECT_DEATH(QVTWebRequest::requestWithMethodPath("GET", std::nullopt), "\\(path\\)");
  EXPECT_DEATH(QVTWebRequest::requestWithMethodPath(std::nullopt, "p"), "\\(method\\)");
  EXPECT_DEATH(QVTWebClient::encodeJSON(Value(1)), "0 && \"encodeJSON: isn't implemented yet\"");
  EXPECT_DEATH(clientFor("http://a/")->syncStartRequestCompletion(getRequest(), nullptr),
               "Assertion failed: \\(completion\\)");
}

TEST(QVTWebAPIClientEndpoints, TakesTheEnvironmentsWord) {
  using Endpoints = QVTWebAPIClientEndpoints;
  const ScopedEnvironment none("QuorvantileAPIEndpoint", nullptr);
  const std::string kits = Endpoints::gantryKitsEndpoint();
  EXPECT_THAT((std::set{Endpoints::APIEndpoint(), Endpoints::CMEndpoint(), kits}),
              AllOf(SizeIs(3), Each(StartsWith("https://"))));
  const ScopedEnvironment override("QuorvantileAPIEndpoint", "http://127.0.0.1:1");
  EXPECT_EQ(Endpoints::APIEndpoint(), "http://127.0.0.1:1");
  EXPECT_EQ(Endpoints::CMEndpoint(), "http://127.0.0.1:1");
  EXPECT_EQ(Endpoints::gantryKitsEndpoint(), kits);
  EXPECT_EQ(QVTNetworkConstants::userAgentMacApp(), "Quorvantile for Mac/(null)");
}

}  // namespace
