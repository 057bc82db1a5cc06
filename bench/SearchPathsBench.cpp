#include <ctime>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "foundation/base/Text.h"
#include "tests/support/TemporaryFolder.h"
#include "xcode/QVTEnvironment.h"

namespace {

/// CPU time, so that a busy machine does not change the ratio.
double secondsUsed() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

/// Numbered paths, of which the first `directories` exist.
std::string valueOf(const test::TemporaryFolder& folder, int directories, int others) {
  std::vector<std::string> pieces;
  for (int i = 0; i < directories + others; ++i) {
    const auto path = folder / ("d" + std::to_string(i));
    if (i < directories) std::filesystem::create_directory(path);
    pieces.push_back(path.string());
  }
  return foundation::joined(pieces, " ");
}

/// The directory lookups of a parse: their number, and an even sample of some hundreds.
struct Questions {
  std::size_t count = 0;
  std::vector<std::string> sample;
};

Questions questionsOf(const std::string& value) {
  Questions questions;
  const auto walk = [&](std::size_t step) {
    questions = {};
    QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
        value, "", [&](const std::string& path) {
          if (questions.count++ % step == 0) questions.sample.push_back(path);
          return QVTIsDirectoryOnHost(path);
        });
  };
  walk(std::numeric_limits<std::size_t>::max());
  walk(questions.count / 500 + 1);
  return questions;
}

/// The cost of a lookup alone.
double secondsPerQuestion(const std::vector<std::string>& sample) {
  constexpr int kRounds = 50;
  const double start = secondsUsed();
  for (int round = 0; round < kRounds; ++round) {
    for (const std::string& path : sample) benchmark::DoNotOptimize(QVTIsDirectoryOnHost(path));
  }
  return (secondsUsed() - start) / (kRounds * static_cast<double>(sample.size()));
}

/// `ratio` is the time of a parse divided by the time of its lookups alone, measured in turns.
void parse(benchmark::State& state, int directories, int others) {
  const test::TemporaryFolder folder;
  const std::string value = valueOf(folder, directories, others);
  const Questions questions = questionsOf(value);
  double bare = 0;
  double whole = 0;
  for (auto _ : state) {
    bare += secondsPerQuestion(questions.sample) * static_cast<double>(questions.count);
    const double start = secondsUsed();
    benchmark::DoNotOptimize(QVTEnvironment::parseFrameworkSearchPathsFromRootInString(value));
    whole += secondsUsed() - start;
  }
  state.counters["questions"] = static_cast<double>(questions.count);
  state.counters["ratio"] = whole / bare;
}

void noneIsADirectory(benchmark::State& state) { parse(state, 0, 500); }
void directoriesThenOthers(benchmark::State& state) { parse(state, 200, 200); }

BENCHMARK(noneIsADirectory)->Unit(benchmark::kMillisecond);
BENCHMARK(directoriesThenOthers)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
