// Runs a reader on saved inputs, without a fuzzer, as a test of every build.
//
// usage: replay READER FOLDER
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/Reader.h"

/// Saved inputs are small; taking longer, even under sanitizers, means that a reader is not linear.
constexpr std::chrono::seconds kLimit(10);

int main(int, char** arguments) {
  const fuzz::Reader reader = fuzz::readerNamed(arguments[1]);
  int count = 0;
  int tooSlow = 0;
  for (const auto& entry : std::filesystem::directory_iterator(arguments[2])) {
    // In case of a crash.
    std::printf("%s\n", entry.path().c_str());
    std::fflush(stdout);
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    const auto start = std::chrono::steady_clock::now();
    reader(foundation::bytesOf(input));
    if (std::chrono::steady_clock::now() - start > kLimit) {
      std::printf("took too long\n");
      ++tooSlow;
    }
    ++count;
  }
  return count > 0 && tooSlow == 0 ? 0 : 1;
}
