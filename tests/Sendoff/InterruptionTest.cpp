// Signals at every step of a run.
#include <array>
#include <csignal>
#include <fstream>
#include <future>
#include <random>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "foundation/base/Handle.h"
#include "tests/Sendoff/HangingTools.h"
#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
const std::string kInterrupted = "The run was interrupted by ";

std::string nameOfSignal(int signal) { return std::string("SIG") + ::sigabbrev_np(signal); }

/// True when the signal has been delivered to the process, or the process is gone.
bool isDelivered(pid_t process, int signal) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("ShdPnd:\t")) continue;
    return (std::stoull(line.substr(8), nullptr, 16) >> (signal - 1) & 1) == 0;
  }
  return true;
}

class InterruptionTest : public testing::Test {
 protected:
  InterruptionTest() { place_.environment()["PATH"] = tools_.path(); }

  RunOptions handOff(const std::string& endpoint, std::vector<std::string> more = {}) {
    std::ofstream(place_.files() / "notes.txt") << "notes";
    more.insert(more.begin(), {"-ipaPath", ipa_, "-notesPath", place_.files() / "notes.txt",
                               "-emails", "a@x.org", "-QuorvantileAPIEndpoint", endpoint});
    return place_.options(more);
  }

  /// The end of a run that got this signal: its line and nothing else about it, its files gone.
  void expectInterrupted(const RunResult& result, int signal) {
    EXPECT_EQ(result.signal, signal) << result.output;
    const auto lines = result.messages();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), kInterrupted + nameOfSignal(signal));
    EXPECT_THAT(result.output, Not(HasSubstr("Failed")));
    EXPECT_THAT(result.output, Not(HasSubstr("Unable")));
    EXPECT_THAT(itemsLeft(), IsEmpty());
  }
  /// All that is left but the folders that runs share, which are empty then.
  std::vector<std::string> itemsLeft() const {
    auto left = place_.leftovers();
    std::erase_if(left, [](const std::string& name) {
      return name == "com.quorvantile.mac" || name == "com.quorvantile.mac/apps" ||
             name == "com.quorvantile.mac/distributions" || name == "com.quorvantile.ipas";
    });
    return left;
  }

  Workplace place_;
  HangingTools tools_{place_.home()};
  fs::path ipa_ = packIPA(makeApp(place_.files()), place_.files() / "Example.ipa");
};

TEST_F(InterruptionTest, WhileAToolRuns) {
  StandInService service;
  for (int call = 1; call <= HangingTools::kCallsOfARun; ++call) {
    for (const int signal : kSignals) {
      SCOPED_TRACE(nameOfSignal(signal) + " in call " + std::to_string(call));
      tools_.hangInCall(call);
      RunningProgram run(handOff(service.url()));
      ASSERT_TRUE(tools_.waitUntilHanging()) << run.output();
      ::kill(run.process(), signal);
      expectInterrupted(run.wait(), signal);
      EXPECT_TRUE(tools_.areGone());
    }
  }
  EXPECT_THAT(service.calls(), IsEmpty());
}

TEST_F(InterruptionTest, AToolThatDoesNotWantToEndIsKilled) {
  tools_.hangInCall(1, HangingTools::Manner::stubborn);
  RunningProgram run(handOff("http://127.0.0.1:1"));
  ASSERT_TRUE(tools_.waitUntilHanging());
  ::kill(run.process(), SIGTERM);
  expectInterrupted(run.wait(), SIGTERM);
  EXPECT_TRUE(tools_.areGone());
}

TEST_F(InterruptionTest, WhileTheServiceIsWaitedFor) {
  StandInService service;
  const std::array calls = {ServiceCall::validate, ServiceCall::notes, ServiceCall::testers,
                            ServiceCall::upload};
  for (std::size_t step = 0; step < calls.size(); ++step) {
    SCOPED_TRACE(nameOf(calls[step]));
    std::promise<void> reached;
    service.answer(calls[step], [&](const ReceivedRequest&, Peer& peer) {
      reached.set_value();
      peer.stall();
    });
    RunningProgram run(handOff(service.url()));
    ASSERT_EQ(reached.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    const int signal = kSignals[step % kSignals.size()];
    const auto sent = std::chrono::steady_clock::now();
    ::kill(run.process(), signal);
    expectInterrupted(run.wait(), signal);
    EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(3));
    service.answer(calls[step], httpAnswer(200));
  }
}

TEST_F(InterruptionTest, WhileTheNotesAreWaitedFor) {
  StandInService service;
  const auto pipe = place_.files() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  RunningProgram run(handOff(service.url(), {"-notesPath", pipe}));
  foundation::FileDescriptor writer;
  ASSERT_TRUE(eventually([&] {
    writer.reset(::open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));  // needs a reader
    return static_cast<bool>(writer);
  })) << run.output();
  ::kill(run.process(), SIGINT);
  expectInterrupted(run.wait(), SIGINT);
}

TEST_F(InterruptionTest, WhileTheUploadGoesOut) {
  // More than the system takes in advance, and nothing that packing could make smaller.
  std::string noise(16 << 20, '\0');
  std::ranges::generate(
      noise, [random = std::minstd_rand()]() mutable { return static_cast<char>(random() >> 8); });
  const auto app = makeApp(place_.files(), {.folderName = "Large.app"});
  std::ofstream(app / "noise") << noise;
  ipa_ = packIPA(app, place_.files() / "Large.ipa");

  std::promise<void> reached;
  const LoopbackServer server(alwaysAnswer(httpAnswer(200)),
                              {.onHead = [&](const ReceivedRequest& request, Peer& peer) {
                                if (request.method != "POST") return false;
                                reached.set_value();
                                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                                peer.stall();
                                return true;
                              }});
  RunningProgram run(handOff(server.url()));
  ASSERT_EQ(reached.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  const auto sent = std::chrono::steady_clock::now();
  ::kill(run.process(), SIGTERM);
  expectInterrupted(run.wait(), SIGTERM);
  EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(3));
}

// Either the signal counts, or it came too late and the run ends as ever.
TEST_F(InterruptionTest, AtAnyMoment) {
  StandInService service;
  const auto archive = place_.files() / "Example.xcarchive";
  place_.environment()["ARCHIVE_PRODUCTS_PATH"] =
      makeArchive(archive, place_.files() / "Example.app");
  const auto started = std::chrono::steady_clock::now();
  const RunOptions byArchive = place_.options({"-QuorvantileAPIEndpoint", service.url()});
  ASSERT_EQ(runProgram(byArchive).status, 0);
  const auto whole = std::chrono::steady_clock::now() - started;

  constexpr int moments = 24;
  int interrupted = 0;
  for (int moment = 0; moment < moments; ++moment) {
    const int signal = kSignals[static_cast<std::size_t>(moment) % kSignals.size()];
    SCOPED_TRACE(nameOfSignal(signal) + " at moment " + std::to_string(moment));
    fs::remove_all(place_.temporary());
    fs::create_directory(place_.temporary());
    RunningProgram run(moment % 2 ? byArchive : handOff(service.url()));
    // Not before the program has begun: until then the signal is the system's own matter.
    while (run.output().empty()) std::this_thread::yield();
    std::this_thread::sleep_for(whole * moment / moments);
    ::kill(run.process(), signal);
    const RunResult result = run.wait();
    if (result.signal != 0) {
      ++interrupted;
      EXPECT_EQ(result.messages().back(), kInterrupted + nameOfSignal(signal));
      EXPECT_THAT(result.output, Not(HasSubstr("Failed")));
      EXPECT_THAT(itemsLeft(), IsEmpty());
    } else {
      EXPECT_EQ(result.status, 0) << result.output;
    }
  }
  EXPECT_GT(interrupted, moments / 3);
}

// The second run must leave alone what the first one is at.
TEST_F(InterruptionTest, WhileItWaitsForAnotherRun) {
  tools_.hangInCall(1);
  RunningProgram first(handOff("http://127.0.0.1:1"));
  ASSERT_TRUE(tools_.waitUntilHanging());
  const auto before = place_.leftovers();
  EXPECT_THAT(before, Contains("Example/Payload/Example.app/Info.plist"));

  RunningProgram second(handOff("http://127.0.0.1:1", {"-debug", "YES"}));
  const std::string waits =
      "Waiting for another run that uses " + (place_.temporary() / "Example").string() + "\n";
  ASSERT_TRUE(eventually([&] { return second.output().find(waits) != std::string::npos; }))
      << second.output();
  ::kill(second.process(), SIGINT);
  const RunResult result = second.wait();
  EXPECT_EQ(result.signal, SIGINT);
  EXPECT_EQ(result.messages().back(), kInterrupted + "SIGINT");
  EXPECT_EQ(place_.leftovers(), before);
  ::kill(first.process(), SIGTERM);
  expectInterrupted(first.wait(), SIGTERM);
}

// What was there before the run is not the run's to remove.
TEST_F(InterruptionTest, AFolderThatWasThereKeepsWhatItHeld) {
  const fs::path folder = place_.temporary() / "Example";
  fs::create_directories(folder / "Payload");
  std::ofstream(folder / "mine.txt") << "mine";
  std::ofstream(folder / "Payload/notes.txt") << "mine";
  tools_.hangInCall(1);
  RunningProgram run(handOff("http://127.0.0.1:1"));
  ASSERT_TRUE(tools_.waitUntilHanging());
  ::kill(run.process(), SIGTERM);
  EXPECT_EQ(run.wait().signal, SIGTERM);
  EXPECT_THAT(itemsLeft(), testing::ElementsAre("Example", "Example/Payload",
                                                "Example/Payload/notes.txt", "Example/mine.txt"));
}

TEST_F(InterruptionTest, AnIgnoredSignalStaysIgnored) {
  for (const int ignored : kSignals) {
    SCOPED_TRACE(nameOfSignal(ignored));
    const int other = ignored == SIGTERM ? SIGINT : SIGTERM;
    tools_.hangInCall(2);
    auto options = handOff("http://127.0.0.1:1");
    options.prepare = [ignored] { std::signal(ignored, SIG_IGN); };
    RunningProgram run(options);
    ASSERT_TRUE(tools_.waitUntilHanging());
    ::kill(run.process(), ignored);
    ::kill(run.process(), other);
    expectInterrupted(run.wait(), other);
  }
}

/// Gives the program a console that takes nothing, or only so many bytes.
class StalledConsole {
 public:
  explicit StalledConsole(std::size_t room = 0) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    reader_.reset(ends[0]);
    writer_.reset(ends[1]);
    ::fcntl(writer_.get(), F_SETFL, O_NONBLOCK);
    while (::write(writer_.get(), "x", 1) == 1) {
    }
    if (room > 0) leave(room);
    ::fcntl(writer_.get(), F_SETFL, 0);
  }
  [[nodiscard]] std::function<void()> connect() const {
    return [writer = writer_.get()] { ::dup2(writer, STDOUT_FILENO); };
  }

 private:
  /// A pipe is emptied by the page.
  void leave(std::size_t room) {
    std::string page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)), 'x');
    const auto size = static_cast<ssize_t>(page.size());
    const auto rest = page.size() - room;
    if (::read(reader_.get(), page.data(), page.size()) != size ||
        ::write(writer_.get(), page.data(), rest) != static_cast<ssize_t>(rest)) {
      throw std::runtime_error("no room in the pipe");
    }
  }

  foundation::FileDescriptor reader_;
  foundation::FileDescriptor writer_;
};

TEST_F(InterruptionTest, ASecondSignalEndsTheRunAtOnce) {
  const StalledConsole console;
  auto options = handOff("http://127.0.0.1:1");
  options.prepare = console.connect();
  RunningProgram run(options);
  // Until the program watches for signals, the first one ends it, too: by itself.
  ASSERT_TRUE(eventually([&] { return catches(run.process(), SIGINT); }));
  const auto sent = std::chrono::steady_clock::now();
  ::kill(run.process(), SIGINT);
  ASSERT_TRUE(eventually([&] { return isDelivered(run.process(), SIGINT); }));
  ::kill(run.process(), SIGTERM);
  EXPECT_EQ(run.wait().signal, SIGTERM);
  EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(4));
}

/// In its first line, and in its last, when the inflated app would stay otherwise.
TEST_F(InterruptionTest, AConsoleThatNobodyReadsHoldsItUpForSecondsOnly) {
  fs::remove(place_.files() / "Example.app/embedded.mobileprovision");
  fs::remove(ipa_);
  packIPA(place_.files() / "Example.app", ipa_);
  auto options = handOff("http://127.0.0.1:1");
  const std::size_t whole = runProgram(options).output.size();
  ASSERT_THAT(itemsLeft(), Contains("Example"));
  fs::remove_all(place_.temporary() / "Example");
  for (const std::size_t room : {std::size_t{0}, whole - 1}) {
    const StalledConsole console(room);
    options.prepare = console.connect();
    RunningProgram run(options);
    ASSERT_TRUE(eventually([&] { return catches(run.process(), SIGINT); }));
    ASSERT_TRUE(
        eventually([&] { return room == 0 || fs::exists(place_.temporary() / "Example"); }));
    // Most of the rest of the run; any other moment would do, too.
    std::this_thread::sleep_for(std::chrono::milliseconds(room == 0 ? 0 : 500));
    ::kill(run.process(), SIGINT);
    EXPECT_EQ(run.wait().signal, SIGINT);
    EXPECT_THAT(itemsLeft(), IsEmpty());
  }
}

}  // namespace
}  // namespace test
