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

using Response = std::shared_ptr<QVTWebResponse>;

/// Runs the exchange to its end; the handler must be called once, on the transaction's own queue.
Response asynchronously(const std::shared_ptr<QVTWebRequest>& request) {
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  const auto main = std::this_thread::get_id();
  int calls = 0;
  Response result;
  transaction->startWithCompletionHandler([&](const Response& response) {
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

Response synchronously(const std::shared_ptr<QVTWebRequest>& request) {
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  Response result;
  const auto caller = std::this_thread::get_id();
  transaction->syncStartWithCompletionHandler([&](const Response& response) {
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
  const auto ambiguous = requestFor("http://127.0.0.1:1/");
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
}

TEST(QVTWebClientTransaction, AChallengeEndsAnAsynchronousExchange) {
  const ScriptedServer server({"/=401 with WWW-Authenticate: Basic realm=\"x\" saying who?"});
  const auto request = requestFor(server.url());
  request->setProtectionSpaceHandler([](const ProtectionSpace&) { return true; });
  const auto refused = asynchronously(request);
  ASSERT_TRUE(refused && refused->error());
  EXPECT_EQ(refused->error()->domain, "QVTWebClientErrorDomain");
  EXPECT_EQ(refused->error()->code, -2);
  EXPECT_FALSE(synchronously(request)->error());
}

TEST(QVTWebClientTransaction, AsksTheRequestsHandlerAboutTrust) {
  const auto request = requestFor("https://a.invalid/");
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  foundation::URLConnection connection(request->URLRequest(), transaction);
  ProtectionSpace asked;
  asked.host = "a.invalid";
  asked.hasServerTrust = true;
  EXPECT_FALSE(transaction->connectionCanAuthenticateAgainstProtectionSpace(connection, asked));
  for (const bool isTrusted : {true, false}) {
    request->setProtectionSpaceHandler([&](const ProtectionSpace& space) {
      EXPECT_EQ(space.host, asked.host);
      return isTrusted;
    });
    EXPECT_EQ(transaction->connectionCanAuthenticateAgainstProtectionSpace(connection, asked),
              isTrusted);
  }
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
