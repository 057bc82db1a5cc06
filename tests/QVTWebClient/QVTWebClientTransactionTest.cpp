#include "QVTWebClient/QVTWebClientTransaction.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Test.h"

namespace {

using foundation::ProtectionSpace;
using foundation::RunLoop;
using foundation::URL;

std::shared_ptr<QVTWebRequest> requestFor(const std::optional<std::string>& url) {
  auto request = QVTWebRequest::requestWithMethodPath("GET", "unused");
  if (url) request->setURL(URL::withString(*url));
  return request;
}

/// Runs the exchange to its end; the handler must be called on the transaction's own queue.
std::shared_ptr<QVTWebResponse> asynchronously(const std::shared_ptr<QVTWebRequest>& request) {
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  const auto main = std::this_thread::get_id();
  std::atomic<int> calls = 0;
  std::shared_ptr<QVTWebResponse> result;
  transaction->startWithCompletionHandler([&](const std::shared_ptr<QVTWebResponse>& response) {
    EXPECT_TRUE(transaction->queue().isCurrent());
    EXPECT_NE(std::this_thread::get_id(), main);
    result = response;
    RunLoop::main().perform([&] { ++calls; });
  });
  EXPECT_TRUE(eventuallyOnMainLoop([&] { return calls > 0; }));
  transaction->queue().sync([] {});
  EXPECT_FALSE(transaction->completionHandler());
  EXPECT_EQ(calls, 1);
  return result;
}

std::shared_ptr<QVTWebResponse> synchronously(const std::shared_ptr<QVTWebRequest>& request) {
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  std::shared_ptr<QVTWebResponse> result;
  const auto caller = std::this_thread::get_id();
  transaction->syncStartWithCompletionHandler([&](const std::shared_ptr<QVTWebResponse>& response) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    result = response;
  });
  return result;
}

Value rawBody(std::string_view text) { return Data(std::string(text)); }

TEST(QVTWebClientTransaction, DecodesTheBodyOfAnAsynchronousAnswer) {
  const Value decoded = Dictionary{{"a", 1}};
  const std::string list = plist({{"a", 1}});
  const std::tuple<std::string, std::string, std::optional<Value>> cases[] = {
      {"application/json; charset=utf-8", "{\"a\":1}", decoded},
      {"application/x-plist", list, decoded},
      {"application/json, application/x-plist", list, decoded},
      {"text/html", "{\"a\":1}", rawBody("{\"a\":1}")},
      {"application/json", "{\"a\":", std::nullopt},
      {"application/json", "\"text\"", std::nullopt},
      {"application/x-plist", "<plist><dict>", std::nullopt},
      {"application/json", "", std::nullopt}};
  for (const auto& [type, body, expected] : cases) {
    SCOPED_TRACE(type + ": " + body);
    const ScriptedServer server({"/=200 with Content-Type: " + type + " saying " + escaped(body)});
    const auto response = asynchronously(requestFor(server.url()));
    ASSERT_TRUE(response);
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
  ASSERT_TRUE(response);
  EXPECT_EQ(response->statusCode(), 404u);
  EXPECT_EQ(response->body(), rawBody("{\"a\":1}"));
  EXPECT_FALSE(response->error());
  EXPECT_FALSE(response->wasSuccessful());
  EXPECT_EQ(response->description(),
            "{request: " + server.url("/?q=a%20b") +
                ", status: 404, body: <7b226122 3a317d>, error: (null), headers: {\n"
                "    \"Content-Length\" = 7;\n    \"Content-Type\" = application/json;\n}}");
}

TEST(QVTWebClientTransaction, WhatIsNotSentReachesTheHandlerOnce) {
  const ScriptedServer server({"/=200"});
  const auto ambiguous = requestFor(server.url());
  ambiguous->addValueForFormField("\r\n--AaB03x", "a");
  for (const auto& [request, code] :
       {std::pair(requestFor(std::nullopt), -1002), std::pair(ambiguous, -3)}) {
    for (const auto& response : {asynchronously(request), synchronously(request)}) {
      ASSERT_TRUE(response && response->error());
      EXPECT_EQ(response->error()->code, code);
      EXPECT_EQ(response->statusCode(), 0u);
      EXPECT_FALSE(response->body());
    }
  }
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST(QVTWebClientTransaction, AChallengeEndsAnAsynchronousExchange) {
  const ScriptedServer server({"/=401 with WWW-Authenticate: Basic realm=\"x\" saying who?"});
  const auto request = requestFor(server.url());
  request->setProtectionSpaceHandler([](const ProtectionSpace&) { return true; });
  const auto refused = asynchronously(request);
  ASSERT_TRUE(refused && refused->error());
  EXPECT_EQ(refused->error()->domain, "QVTWebClientErrorDomain");
  EXPECT_EQ(refused->error()->code, -2);
  const auto answer = synchronously(request);
  EXPECT_FALSE(answer->error());
  EXPECT_EQ(answer->statusCode(), 401u);
}

TEST(QVTWebClientTransaction, AsksTheRequestsHandlerAboutTrust) {
  const auto request = requestFor("https://a.invalid/");
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  foundation::URLConnection connection(request->URLRequest(), transaction);
  ProtectionSpace asked;
  asked.host = "a.invalid";
  asked.hasServerTrust = true;
  const auto answer = [&] {
    return transaction->connectionCanAuthenticateAgainstProtectionSpace(connection, asked);
  };
  EXPECT_FALSE(answer()) << "without a handler";
  for (const bool isTrusted : {true, false}) {
    request->setProtectionSpaceHandler([&](const ProtectionSpace& space) {
      EXPECT_EQ(space.host, asked.host);
      return isTrusted;
    });
    EXPECT_EQ(answer(), isTrusted);
  }
}

TEST(QVTWebResponse, CountsAsSuccessOnlyFrom200To299WithoutError) {
  for (const auto& [code, expected] :
       {std::pair{0u, false}, {199u, false}, {200u, true}, {299u, true}, {300u, false}}) {
    QVTWebResponse response;
    response.setStatusCode(code);
    EXPECT_EQ(response.wasSuccessful(), expected) << code;
    response.setError(Error{.domain = "d", .code = 0, .userInfo = {}});
    EXPECT_FALSE(response.wasSuccessful());
  }
}

TEST(QVTWebClientTransactionDeathTest, StopsForASecondStartAndForNoHandler) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto ignore = [](const auto&) {};
  const auto twice = QVTWebClientTransaction::transactionWithRequest(requestFor(std::nullopt));
  EXPECT_DEATH(twice->complete(), "\\(_completionHandler\\)");
  twice->syncStartWithCompletionHandler(ignore);
  EXPECT_DEATH(twice->syncStartWithCompletionHandler(ignore), "\\(!_connection\\)");
  EXPECT_DEATH(twice->syncStartConnection(), "\\(_connection == nil\\)");
  EXPECT_DEATH(twice->startConnection(), "\\(_connection == nil\\)");
}

}  // namespace
