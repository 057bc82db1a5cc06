// Runs a fuzz target on saved inputs, without a fuzzer, as a test of every build.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/FuzzTarget.h"

namespace {

namespace fs = std::filesystem;

/// Saved inputs are small; taking longer, even under sanitizers, means that a reader is not linear.
constexpr std::chrono::seconds kLimit(10);

std::string contentsOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// False when the reader was too slow. Prints the input's path first, in case of a crash.
bool replay(const fs::path& path) {
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  const std::string input = contentsOf(path);
  const auto start = std::chrono::steady_clock::now();
  fuzz::readInput(foundation::bytesOf(input));
  const bool isQuick = std::chrono::steady_clock::now() - start < kLimit;
  if (!isQuick) std::fprintf(stderr, "%s: took too long\n", path.c_str());
  return isQuick;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  int count = 0;
  bool isQuick = true;
  for (int i = 1; i < argumentCount; ++i) {
    for (const auto& entry : fs::directory_iterator(arguments[i])) {
      isQuick = replay(entry.path()) && isQuick;
      ++count;
    }
  }
  if (count == 0) std::fprintf(stderr, "replay: no inputs\n");
  return count > 0 && isQuick ? 0 : 1;
}
