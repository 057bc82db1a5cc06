#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVTWebClient/QVTWebClientTransaction.h"
#include "foundation/queue/RunLoop.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::ProtectionSpace;
using foundation::RunLoop;
using foundation::URL;
using foundation::Value;
using test::alwaysAnswer;
using test::httpAnswer;
using test::LoopbackServer;

constexpr std::string_view kPropertyList =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>a</key>"
    "<integer>1</integer></dict></plist>";

std::shared_ptr<QVTWebRequest> requestFor(const std::string& url) {
  auto request = QVTWebRequest::requestWithMethodPath("GET", "unused");
  request->setURL(URL::withString(url));
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
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return calls > 0; }, std::chrono::seconds(30)));
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

TEST(QVTWebClientTransaction, DecodesTheBodyOfAnAsynchronousAnswer) {
  const Value decoded = foundation::Dictionary{{"a", 1}};
  const auto raw = [](std::string_view text) { return Value(foundation::Data(std::string(text))); };
  struct Case {
    const char* type;
    std::string_view body;
    std::optional<Value> expected;
    bool fails;
  };
  for (const Case& c :
       {Case{"application/json; charset=utf-8", "{\"a\":1}", decoded, false},
        Case{"application/x-plist", kPropertyList, decoded, false},
        Case{"application/json, application/x-plist", kPropertyList, decoded, false},
        Case{"text/html", "{\"a\":1}", raw("{\"a\":1}"), false},
        Case{"application/json", "{\"a\":", std::nullopt, false},
        Case{"application/json", "\"text\"", std::nullopt, false},
        Case{"application/x-plist", "<plist><dict>", std::nullopt, true},
        Case{"application/json", "", std::nullopt, false}}) {
    SCOPED_TRACE(std::string(c.type) + ": " + std::string(c.body));
    const std::string field = "Content-Type: " + std::string(c.type) + "\r\n";
    const LoopbackServer server(alwaysAnswer(httpAnswer(200, c.body, field)));
    const auto response = asynchronously(requestFor(server.url("/")));
    ASSERT_TRUE(response);
    EXPECT_EQ(response->body(), c.expected);
    EXPECT_EQ(response->error().has_value(), c.fails);
    EXPECT_EQ(response->wasSuccessful(), !c.fails);
    EXPECT_EQ(foundation::textOf(response->responseData()), c.body);
    EXPECT_EQ(response->responseHeaders()->at("content-type"), c.type);
  }
}

TEST(QVTWebClientTransaction, ASynchronousBodyIsRaw) {
  const LoopbackServer server(
      alwaysAnswer(httpAnswer(404, "{\"a\":1}", "Content-Type: application/json\r\n")));
  const auto request = requestFor(server.url("/"));
  request->setParameters(QVTWebRequest::Parameters{{"q", "a b"}});
  const auto response = synchronously(request);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->statusCode(), 404u);
  EXPECT_EQ(response->body(), Value(foundation::Data(std::string("{\"a\":1}"))));
  EXPECT_FALSE(response->error());
  EXPECT_FALSE(response->wasSuccessful());
  EXPECT_EQ(response->requestURL()->absoluteString(), server.url("/?q=a%20b"));
}

TEST(QVTWebClientTransaction, TransportErrorsReachTheHandlerOnce) {
  const auto request = QVTWebRequest::requestWithMethodPath("GET", "nowhere");
  for (const auto& response : {asynchronously(request), synchronously(request)}) {
    ASSERT_TRUE(response && response->error());
    EXPECT_EQ(response->error()->code, -1002);
    EXPECT_EQ(response->statusCode(), 0u);
    EXPECT_FALSE(response->body());
    EXPECT_FALSE(response->requestURL());
  }
}

TEST(QVTWebClientTransaction, SendsNoFormThatWouldBeReadAsAnother) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)));
  const auto request = requestFor(server.url("/"));
  request->addValueForFormField("\r\n--AaB03x", "a");
  for (const auto& response : {asynchronously(request), synchronously(request)}) {
    ASSERT_TRUE(response && response->error());
    EXPECT_EQ(response->error()->code, -3);
    EXPECT_EQ(response->statusCode(), 0u);
  }
  EXPECT_EQ(server.connectionCount(), 0u);
}

TEST(QVTWebClientTransaction, AChallengeEndsAnAsynchronousExchange) {
  const LoopbackServer server(
      alwaysAnswer(httpAnswer(401, "who?", "WWW-Authenticate: Basic realm=\"x\"\r\n")));
  const auto request = requestFor(server.url("/"));
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
  const test::TemporaryFolder folder;
  const test::TLSAuthority authority;
  const std::string trusted = folder.write("trusted.pem", authority.certificate()).string();
  const test::ScopedEnvironment trust("SSL_CERT_FILE", trusted.c_str());
  test::ServerOptions options;
  options.identity = authority.issue();
  for (const bool answer : {true, false}) {
    const LoopbackServer server(alwaysAnswer(httpAnswer(200, "safe")), options);
    const auto request = requestFor(server.url("/"));
    int questions = 0;
    request->setProtectionSpaceHandler([&](const ProtectionSpace& space) {
      ++questions;
      EXPECT_TRUE(space.hasServerTrust);
      EXPECT_EQ(space.port, server.port());
      return answer;
    });
    EXPECT_TRUE(synchronously(request)->wasSuccessful());
    EXPECT_EQ(questions, 0);
    EXPECT_TRUE(asynchronously(request)->wasSuccessful()) << "a no is the default check";
    EXPECT_EQ(questions, 1);
  }
}

TEST(QVTWebResponse, CountsAsSuccessOnlyFrom200To299WithoutError) {
  for (const auto& [code, expected] :
       {std::pair{0u, false}, {199u, false}, {200u, true}, {299u, true}, {300u, false}}) {
    QVTWebResponse response;
    response.setStatusCode(code);
    EXPECT_EQ(response.wasSuccessful(), expected) << code;
    response.setError(foundation::Error{.domain = "d", .code = 0, .userInfo = {}});
    EXPECT_FALSE(response.wasSuccessful());
  }
}

TEST(QVTWebClientTransactionDeathTest, StopsForASecondStartAndForNoHandler) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto transaction = QVTWebClientTransaction::transactionWithRequest(requestFor("http://a/"));
  EXPECT_DEATH(transaction->complete(), "\\(_completionHandler\\)");
  EXPECT_DEATH(
      {
        transaction->startConnection();
        transaction->startConnection();
      },
      "\\(_connection == nil\\)");
  EXPECT_DEATH(
      {
        transaction->startConnection();
        transaction->syncStartWithCompletionHandler([](const auto&) {});
      },
      "\\(!_connection\\)");
  const auto twice = QVTWebClientTransaction::transactionWithRequest(
      QVTWebRequest::requestWithMethodPath("GET", "no URL"));
  twice->syncStartWithCompletionHandler([](const auto&) {});
  EXPECT_DEATH(twice->syncStartWithCompletionHandler([](const auto&) {}), "\\(!_connection\\)");
  EXPECT_DEATH(twice->syncStartConnection(), "\\(_connection == nil\\)");
}

}  // namespace
