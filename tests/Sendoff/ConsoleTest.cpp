// What the world around the tool does to its streams, its files and its memory.
#include <csignal>
#include <cstdlib>
#include <fstream>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/StandInService.h"
#include "tests/support/StandInSigner.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ConsoleTest : public testing::Test {
 protected:
  RunResult run(std::vector<std::string> more = {}, const std::function<void()>& prepare = {}) {
    more.insert(more.begin(), {"-ipaPath", ipa_, "-QuorvantileAPIEndpoint", service_.url()});
    return place_.run(more, prepare);
  }
  /// Something in the temporary folder whose name ends so.
  [[nodiscard]] fs::path leftover(const std::string& end) const {
    for (const std::string& name : place_.leftovers()) {
      if (name.ends_with(end)) return place_.temporary() / name;
    }
    return {};
  }

  StandInService service_;
  Workplace place_;
  fs::path ipa_ = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
};

TEST_F(ConsoleTest, AnOutputThatTakesNothingChangesNothing) {
  struct Case {
    const char* name;
    void (*prepare)();
  };
  for (const Case& c : {
           Case{"closed", [] { ::close(1); }},
           Case{"all closed",
                [] {
                  for (const int standard : {0, 1, 2}) ::close(standard);
                }},
           Case{"full", [] { ::dup2(::open("/dev/full", O_WRONLY), 1); }},
           Case{"no reader",
                [] {
                  int ends[2];
                  if (::pipe(ends) != 0) ::_exit(126);
                  ::dup2(ends[1], 1);
                  ::close(ends[0]);
                  ::close(ends[1]);
                  std::signal(SIGPIPE, SIG_DFL);
                }},
           Case{"read-only", [] { ::dup2(::open("/dev/null", O_RDONLY), 1); }},
       }) {
    SCOPED_TRACE(c.name);
    place_.environment()["CODE_SIGN_KEYCHAIN"] = place_.home() / "Library/Keychains/identity.pem";
    const auto result = run({"-debug", "YES"}, c.prepare);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(leftover(".ipa"), fs::path());
    EXPECT_EQ(leftover(".app"), fs::path());
  }
  EXPECT_THAT(service_.complaints(), IsEmpty());
  EXPECT_EQ(service_.calls().size(), 10u);
}

TEST_F(ConsoleTest, CredentialsStayOutOfEveryLineAndEveryChild) {
  const StandInSigner signer;
  place_.environment()["PATH"] = std::getenv("PATH");
  service_.answer(ServiceCall::upload, httpAnswer(500));
  const auto result = run({"-debug", "YES"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(signer.calls().size(), 4u);
  for (const std::string& text : {result.output, result.errors}) {
    EXPECT_THAT(text, Not(HasSubstr(kKey)));
    EXPECT_THAT(text, Not(HasSubstr(kSecret)));
  }
  for (const auto& call : signer.calls()) {
    for (const auto& [name, value] : call.environment) EXPECT_THAT(value, Not(HasSubstr(kKey)));
  }
}

TEST_F(ConsoleTest, WhatCannotBeRemovedIsToldInDebugMode) {
  const std::string app = place_.temporary() / "Example/Payload/Example.app";
  const std::string complaint = "Unable to remove item at path " + app + " Error Domain=";
  service_.answer(ServiceCall::validate, [&](const ReceivedRequest&, Peer& peer) {
    fs::remove_all(app);
    peer.send(httpAnswer(200));
  });
  const auto first = run({"-debug", "YES"});
  EXPECT_EQ(first.status, 0);
  EXPECT_THAT(first.messages().back(), testing::StartsWith(complaint));
  const fs::path kept = leftover(".ipa");
  EXPECT_NE(kept, fs::path()) << "the .ipa goes only after the app";
  fs::remove(kept);

  const auto quiet = run();
  EXPECT_EQ(quiet.messages().back(), "Uploaded Successfully 202");
  fs::remove(leftover(".ipa"));

  service_.answer(ServiceCall::validate, httpAnswer(200));
  service_.answer(ServiceCall::upload, [&](const ReceivedRequest&, Peer& peer) {
    fs::remove(leftover(".ipa"));
    peer.send(httpAnswer(202));
  });
  const auto second = run({"-debug", "YES"});
  EXPECT_EQ(second.status, 0);
  // The app's path, although it is the .ipa that was missing.
  EXPECT_THAT(second.messages().back(), testing::StartsWith(complaint));
  EXPECT_EQ(leftover(".app"), fs::path());
}

TEST_F(ConsoleTest, AnUploadIsInMemoryOnce) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory hides the tool's";
#endif
  const fs::path app = makeApp(place_.files() / "large");
  std::string noise(48 << 20, '\0');
  std::uint64_t state = 1;
  for (char& c : noise) {
    c = static_cast<char>((state = state * 6364136223846793005u + 1442695040888963407u) >> 56);
  }
  std::ofstream(app / "noise", std::ios::binary) << noise;
  ipa_ = packIPA(app, place_.files() / "Large.ipa");

  const fs::path processFile = place_.files() / "pid";
  long peak = 0;
  std::size_t size = 0;
  service_.answer(ServiceCall::upload, [&](const ReceivedRequest& request, Peer& peer) {
    size = request.body().size();
    std::ifstream status("/proc/" + contentsOf(processFile) + "/status");
    for (std::string word; status >> word;) {
      if (word == "VmHWM:") status >> peak;
    }
    peer.send(httpAnswer(202));
  });
  const auto result = run({}, [&] { std::ofstream(processFile) << ::getpid(); });
  EXPECT_EQ(result.status, 0) << result.output;
  ASSERT_GT(size, noise.size());
  const auto limit = static_cast<long>(size / 1024) * 11 / 10 + (24 << 10);
  EXPECT_GT(peak, static_cast<long>(size / 1024));
  EXPECT_LE(peak, limit);
  RecordProperty("peakResidentKilobytes", std::to_string(peak));
  RecordProperty("uploadKilobytes", std::to_string(size / 1024));
}

}  // namespace
}  // namespace test
