#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "foundation/Text.h"
#include "tests/support/TemporaryFolder.h"
#include "xcode/QVTEnvironment.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Pieces named after their numbers, `directories` of which exist.
std::string valueOf(const test::TemporaryFolder& folder, int directories, int others) {
  std::vector<std::string> pieces;
  for (int i = 0; i < directories + others; ++i) {
    const auto path = folder / ("d" + std::to_string(i));
    if (i < directories) std::filesystem::create_directory(path);
    pieces.push_back(path.string());
  }
  return foundation::joined(pieces, " ");
}

/// Parses a value with the host as the judge. `ratio` is the time of a parse to the time that its
/// bare questions take, measured in turns.
void parse(benchmark::State& state, int directories, int others) {
  const test::TemporaryFolder folder;
  const std::string value = valueOf(folder, directories, others);
  std::vector<std::string> sample;
  std::size_t count = 0;
  const auto answer = [&](const std::string& path) {
    // Every 64th question is kept and asked again below, for the price of a bare one.
    if (count++ % 64 == 0) sample.push_back(path);
    return QVTIsDirectoryOnHost(path);
  };
  QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(value, "", answer);
  double bare = 0;
  double whole = 0;
  for (auto _ : state) {
    auto start = Clock::now();
    for (const std::string& path : sample) benchmark::DoNotOptimize(QVTIsDirectoryOnHost(path));
    const std::chrono::duration<double> questions = Clock::now() - start;
    bare += questions.count() * static_cast<double>(count) / static_cast<double>(sample.size());
    start = Clock::now();
    benchmark::DoNotOptimize(QVTEnvironment::parseFrameworkSearchPathsFromRootInString(value));
    whole += std::chrono::duration<double>(Clock::now() - start).count();
  }
  state.counters["questions"] = static_cast<double>(count);
  state.counters["ratio"] = whole / bare;
}

void noneIsADirectory(benchmark::State& state) { parse(state, 0, 500); }
void directoriesThenOthers(benchmark::State& state) { parse(state, 200, 200); }

BENCHMARK(noneIsADirectory)->Unit(benchmark::kMillisecond);
BENCHMARK(directoriesThenOthers)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
