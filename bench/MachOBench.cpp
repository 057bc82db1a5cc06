// Opening a large universal executable and computing its identifier: time, page faults and resident
// pages of the mapping. The file is sparse and has only headers.
#include <fstream>

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

constexpr std::uint64_t kFileSize = 200'000'000;

std::string image(test::Processor processor, const char* uuid) {
  std::vector commands = {test::uuidCommand(uuid),
                          test::command(macho::LC_VERSION_MIN_IPHONEOS, {0x90000, 0xc0100})};
  for (int i = 0; i < 40; ++i) {
    const std::string name = "F" + std::to_string(i);
    commands.push_back(test::dylibCommand("/System/Library/Frameworks/" + name + ".framework/F"));
  }
  return test::machO(commands, processor);
}

/// Two slices, each half of the file.
std::filesystem::path makeLargeFile(const test::TemporaryFolder& folder) {
  const auto armv7 = image(test::kARMv7, "ffeeddccbbaa99887766554433221100");
  const auto arm64 = image(test::kARM64, "00112233445566778899aabbccddeeff");
  constexpr std::uint32_t kFirst = 16384;
  constexpr std::uint32_t kSecond = kFileSize / 2 / kFirst * kFirst;
  const std::string table =
      test::universalFile({{"", test::kARMv7, kFirst}, {"", test::kARM64, kSecond}});
  const auto path = folder / "App";
  std::ofstream out(path, std::ios::binary);
  out << table;
  out.seekp(kFirst) << armv7;
  out.seekp(kSecond) << arm64;
  out.close();
  std::filesystem::resize_file(path, kFileSize);
  return path;
}

/// "RssFile", the resident pages of mapped files, in KiB.
long residentFileKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long kibibytes = 0;
    if (word == "RssFile:" && status >> kibibytes) return kibibytes;
  }
  return 0;
}

long minorFaults() {
  struct rusage usage {};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

void identify(const std::string& path) {
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path);
  benchmark::DoNotOptimize(binary->instanceIdentifier());
}

void openAndIdentify(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const std::string path = makeLargeFile(folder).string();
  // The digest library's own pages are not to be counted.
  benchmark::DoNotOptimize(QVTMachOBinary::hashNSString("warm"));
  const long before = residentFileKiB();
  const long faultsBefore = minorFaults();
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path);
  benchmark::DoNotOptimize(binary->instanceIdentifier());
  const long faults = minorFaults() - faultsBefore;
  const long touched = residentFileKiB() - before;
  if (touched >= 1000) state.SkipWithError("1 MB of the file or more was touched");
  for (auto _ : state) identify(path);
  state.counters["resident_KiB"] = static_cast<double>(touched);
  state.counters["minor_faults"] = static_cast<double>(faults);
}
BENCHMARK(openAndIdentify)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
