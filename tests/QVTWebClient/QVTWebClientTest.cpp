#include <atomic>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVTWebClient/QVTWebAPIClientEndpoints.h"
#include "QVTWebClient/QVTWebClient.h"
#include "foundation/queue/RunLoop.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::RunLoop;
using foundation::URL;
using test::alwaysAnswer;
using test::httpAnswer;
using test::LoopbackServer;
using test::Peer;
using test::ReceivedRequest;
using Response = std::shared_ptr<QVTWebResponse>;

std::shared_ptr<QVTWebClient> clientFor(const std::string& url) {
  return QVTWebClient::initWithURL(URL::withString(url));
}

bool runUntil(const std::function<bool()>& isDone) {
  return RunLoop::main().runUntil(isDone, std::chrono::seconds(60));
}

/// Calls `start` with a completion and runs the loop until that was called.
Response responseOf(const std::function<void(QVTWebClient::Completion)>& start) {
  Response result;
  bool done = false;
  const auto main = std::this_thread::get_id();
  start([&](const Response& response) {
    EXPECT_NE(std::this_thread::get_id(), main);
    RunLoop::main().perform([&, response] {
      result = response;
      done = true;
    });
  });
  EXPECT_TRUE(runUntil([&] { return done; }));
  return result;
}

TEST(QVTWebClient, ResolvesPathsAgainstItsBase) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)));
  struct Case {
    const char* base;
    const char* path;
    const char* target;
  };
  for (const Case& c :
       {Case{"/v1/", "api/items", "/v1/api/items"}, Case{"/v1/", "/items", "/items"},
        Case{"/v1", "items?q=1", "/items?q=1"}, Case{"", "/spi/v1", "/spi/v1"}}) {
    SCOPED_TRACE(c.target);
    const auto client = clientFor(server.url(c.base));
    client->syncStartRequestCompletion(QVTWebRequest::requestWithMethodPath("GET", c.path),
                                       [](const Response&) {});
    EXPECT_EQ(server.requests().back()->target, c.target);
  }
  const auto request = QVTWebRequest::requestWithMethodPath("GET", "ignored");
  request->setURL(URL::withString(server.url("/own")));
  clientFor("http://other.invalid/")->syncStartRequestCompletion(request, [](const Response&) {});
  EXPECT_EQ(server.requests().back()->target, "/own");
}

TEST(QVTWebClient, AddsItsHeadersWhereTheRequestHasNone) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)));
  const auto client = clientFor(server.url());
  client->addValueForHeader("client", "X-Both");
  client->addValueForHeader("first", "X-Client");
  client->addValueForHeader("second", "X-Client");
  const auto request = QVTWebRequest::requestWithMethodPath("GET", "/");
  request->addValueForHTTPHeaderField("request", "x-both");
  client->syncStartRequestCompletion(request, [](const Response&) {});
  EXPECT_EQ(server.requests().at(0)->header("Accept"), "application/json, application/x-plist");
  EXPECT_EQ(server.requests().at(0)->header("X-Both"), "request");
  EXPECT_EQ(server.requests().at(0)->header("X-Client"), "second");
  const auto own = QVTWebRequest::requestWithMethodPath("GET", "/");
  own->addValueForHTTPHeaderField("text/html", "Accept");
  client->syncStartRequestCompletion(own, [](const Response&) {});
  EXPECT_EQ(server.requests().at(1)->header("Accept"), "text/html");
}

TEST(QVTWebClient, ChecksTheExpectedStatus) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(201)));
  const auto client = clientFor(server.url());
  const auto request = [] { return QVTWebRequest::requestWithMethodPath("GET", "/"); };
  std::vector<Response> unexpected, expected;
  client->syncStartRequestExpectingResponseCompletion(
      request(), 200, [&](const Response& response) { unexpected.push_back(response); });
  client->syncStartRequestExpectingResponseCompletion(
      request(), 201, [&](const Response& response) { expected.push_back(response); });
  unexpected.push_back(responseOf([&](QVTWebClient::Completion completion) {
    client->startRequestExpectingResponseCompletion(request(), 200, std::move(completion));
  }));
  expected.push_back(responseOf([&](QVTWebClient::Completion completion) {
    client->startRequestExpectingResponseCompletion(request(), 201, std::move(completion));
  }));
  for (const Response& response : unexpected) {
    ASSERT_TRUE(response->error());
    EXPECT_EQ(response->error()->domain, "QVTWebClientErrorDomain");
    EXPECT_EQ(response->error()->code, -1);
    EXPECT_TRUE(response->error()->userInfo.empty());
    EXPECT_FALSE(response->wasSuccessful());
  }
  for (const Response& response : expected) EXPECT_TRUE(response->wasSuccessful());
  client->syncStartRequestExpectingResponseCompletion(request(), 200, nullptr);
  clientFor("ftp://a.invalid")
      ->syncStartRequestExpectingResponseCompletion(
          request(), 200, [](const Response& r) { EXPECT_EQ(r->error()->code, -1002); });
}

TEST(QVTWebClient, GetsAndPosts) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200, "[]")));
  const auto client = clientFor(server.url("/v1/"));
  responseOf([&](auto completion) { client->getPathCompletion("items", completion); });
  responseOf([&](auto completion) {
    client->getURLCompletion(*URL::withString(server.url("/else?x=1")), completion);
  });
  responseOf([&](auto completion) {
    client->postFormDataToPathCompletion({{"a", "1"}}, "form", completion);
  });
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0]->method + " " + requests[0]->target, "GET /v1/items");
  EXPECT_EQ(requests[1]->method + " " + requests[1]->target, "GET /else?x=1");
  EXPECT_EQ(requests[2]->method + " " + requests[2]->target, "POST /v1/form");
  EXPECT_THAT(std::string(requests[2]->body()), testing::HasSubstr("name=\"a\""));
  EXPECT_EQ(requests[0]->header("Accept"), requests[2]->header("Accept"));
}

TEST(QVTWebClient, CompletesHundredsAtOnceOnceEach) {
  constexpr std::size_t kCount = 300;
  const LoopbackServer server([](const ReceivedRequest& request, Peer& peer) {
    if (request.target.ends_with("7")) return peer.reset();
    peer.send(
        httpAnswer(200, "[\"" + request.target + "\"]", "Content-Type: application/json\r\n"));
  });
  auto client = clientFor(server.url());
  std::vector<std::atomic<int>> calls(kCount);
  std::atomic<std::size_t> done = 0;
  const auto main = std::this_thread::get_id();
  for (std::size_t i = 0; i < kCount; ++i) {
    const std::string path = "/" + std::to_string(i);
    client->getPathCompletion(path, [&, i, path](const Response& response) {
      EXPECT_NE(std::this_thread::get_id(), main);
      EXPECT_EQ(response->wasSuccessful(), i % 10 != 7);
      const auto expected =
          i % 10 == 7 ? std::nullopt : std::optional(foundation::Value(foundation::Array{path}));
      EXPECT_EQ(response->body(), expected);
      ++calls[i];
      ++done;
      RunLoop::main().perform([] {});
    });
  }
  // The exchanges keep the client; the last of them destroys it, on its own queue.
  const std::weak_ptr<QVTWebClient> gone = client;
  client.reset();
  EXPECT_TRUE(runUntil([&] { return done == kCount; }));
  EXPECT_TRUE(runUntil([&] {
    if (!gone.expired()) RunLoop::main().perform([] {});
    return gone.expired();
  }));
  for (const auto& count : calls) EXPECT_EQ(count, 1);
}

TEST(QVTWebClient, CompletionsMayUseTheClientHoweverManyThereAre) {
  constexpr int kCount = 300;
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)));
  const auto client = clientFor(server.url());
  std::atomic<int> done = 0;
  for (int i = 0; i < kCount; ++i) {
    client->getPathCompletion("/first", [&](const Response&) {
      client->addValueForHeader("1", "X");
      client->syncStartRequestCompletion(QVTWebRequest::requestWithMethodPath("GET", "/second"),
                                         [&](const Response& response) {
                                           EXPECT_TRUE(response->wasSuccessful());
                                           ++done;
                                         });
      RunLoop::main().perform([] {});
    });
  }
  EXPECT_TRUE(runUntil([&] { return done == kCount; })) << done;
  EXPECT_EQ(server.requests().size(), 2u * kCount);
}

TEST(QVTWebClient, ASynchronousStartHoldsTheClientOnTheCallersThread) {
  const LoopbackServer server(alwaysAnswer(httpAnswer(200, "raw")));
  const auto client = clientFor(server.url());
  const auto caller = std::this_thread::get_id();
  std::vector<std::string> order;
  std::thread other;
  client->syncStartRequestCompletion(
      QVTWebRequest::requestWithMethodPath("GET", "/"), [&](const Response& response) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        EXPECT_EQ(response->body(), foundation::Value(foundation::Data(std::string("raw"))));
        std::atomic<bool> isAtIt = false;
        other = std::thread([&] {
          isAtIt = true;
          client->addValueForHeader("1", "X");
          order.emplace_back("header");
        });
        while (!isAtIt) std::this_thread::yield();
        order.emplace_back("completion");
      });
  other.join();
  EXPECT_THAT(order, testing::ElementsAre("completion", "header"));
}

TEST(QVTWebClientDeathTest, StopsForFaultsOfTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(QVTWebClient::encodeJSON(foundation::Value(1)),
               "0 && \"encodeJSON: isn't implemented yet\"");
  EXPECT_DEATH(
      clientFor("http://a/")
          ->syncStartRequestCompletion(QVTWebRequest::requestWithMethodPath("GET", "/"), nullptr),
      "Assertion failed");
}

TEST(QVTWebAPIClientEndpoints, TakesTheEnvironmentsWord) {
  const test::ScopedEnvironment none("QuorvantileAPIEndpoint", nullptr);
  const test::ScopedEnvironment noKits("GantryKitsEndpoint", nullptr);
  const std::string api = QVTWebAPIClientEndpoints::APIEndpoint();
  const std::string kits = QVTWebAPIClientEndpoints::gantryKitsEndpoint();
  EXPECT_THAT(api, testing::StartsWith("https://"));
  EXPECT_NE(api, QVTWebAPIClientEndpoints::CMEndpoint());
  EXPECT_NE(api, kits);
  const test::ScopedEnvironment override("QuorvantileAPIEndpoint", "http://127.0.0.1:1");
  EXPECT_EQ(QVTWebAPIClientEndpoints::APIEndpoint(), "http://127.0.0.1:1");
  EXPECT_EQ(QVTWebAPIClientEndpoints::CMEndpoint(), "http://127.0.0.1:1");
  EXPECT_EQ(QVTWebAPIClientEndpoints::gantryKitsEndpoint(), kits);
}

TEST(QVTNetworkConstants, NamesTheMacApp) {
  EXPECT_EQ(QVTNetworkConstants::userAgentMacApp(), "Quorvantile for Mac/(null)");
}

}  // namespace
