#include "QVTWebClient/QVTWebAPIClientEndpoints.h"
#include "QVTWebClient/QVTWebClient.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Test.h"

namespace {

using foundation::RunLoop;
using foundation::URL;
using Completion = QVTWebClient::Completion;
using Response = std::shared_ptr<QVTWebResponse>;

const Completion kIgnore = [](const Response&) {};

std::shared_ptr<QVTWebClient> clientFor(const std::string& url) {
  return QVTWebClient::initWithURL(URL::withString(url));
}

std::shared_ptr<QVTWebRequest> getRequest(const std::string& path = "/") {
  return QVTWebRequest::requestWithMethodPath("GET", path);
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

TEST(QVTWebClient, ResolvesPathsAgainstItsBaseAndAddsItsHeaders) {
  const ScriptedServer server({"/*=200"});
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"/v1/", "api/items", "/v1/api/items"},
      {"/v1/", "/items", "/items"},
      {"/v1", "items?q=1", "/items?q=1"},
      {"", "/spi/v1", "/spi/v1"}};
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

TEST(QVTWebClient, GetsAndPosts) {
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
  std::vector<std::string> order;
  std::thread other;
  client->syncStartRequestCompletion(getRequest(), [&](const Response&) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
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
  EXPECT_THAT(order, ElementsAre("completion", "header"));
}

TEST(QVTWebClientDeathTest, StopsForFaultsOfTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(QVTWebClient::encodeJSON(Value(1)), "0 && \"encodeJSON: isn't implemented yet\"");
  EXPECT_DEATH(clientFor("http://a/")->syncStartRequestCompletion(getRequest(), nullptr),
               "Assertion failed: \\(completion\\)");
}

TEST(QVTWebAPIClientEndpoints, TakesTheEnvironmentsWord) {
  using Endpoints = QVTWebAPIClientEndpoints;
  const ScopedEnvironment none("QuorvantileAPIEndpoint", nullptr);
  const ScopedEnvironment noKits("GantryKitsEndpoint", nullptr);
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
