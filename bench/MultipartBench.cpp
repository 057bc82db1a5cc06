// The cost of an upload's body before its first byte is sent: building it around a file of 1 GB,
// compared with copying as many bytes once.

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include "QVTWebClient/QVTWebRequest.h"

namespace {

constexpr std::size_t kFileSize = std::size_t{1} << 30;
/// The copy's target is reused, so that the run fits into a small machine.
constexpr std::size_t kCopyWindow = std::size_t{64} << 20;

/// Address space of the file's size, mapped to zeros that take no memory.
foundation::Data largeFile() {
  void* const start = mmap(nullptr, kFileSize, PROT_READ,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_POPULATE, -1, 0);
  if (start == MAP_FAILED) throw std::bad_alloc();
  const std::shared_ptr<const void> owner(
      start, [](const void* mapping) { munmap(const_cast<void*>(mapping), kFileSize); });
  return {owner, {static_cast<const std::byte*>(start), kFileSize}};
}

std::shared_ptr<QVTWebRequest> uploadOf(const foundation::Data& file) {
  auto request = QVTWebRequest::requestWithMethodPath("POST", "/distributions");
  for (int device = 0; device < 100; ++device) {
    request->addValueForFormField(std::string(40, 'd'), "distribution[devices][][udid]");
  }
  request->addDataMIMETypeFileNameForFormField(file, "application/zip", "App.ipa",
                                               "distribution[file]");
  return request;
}

bool sharesBytes(const foundation::RequestBody& body, const foundation::Data& file) {
  const auto& pieces = body.pieces();
  return std::any_of(pieces.begin(), pieces.end(), [&](const auto& piece) {
    const auto* data = std::get_if<foundation::Data>(&piece);
    return data && data->bytes().data() == file.bytes().data();
  });
}

void BuildBody(benchmark::State& state) {
  const foundation::Data file = largeFile();
  for (auto _ : state) {
    const auto request = uploadOf(file)->URLRequest();
    benchmark::DoNotOptimize(request);
    if (!sharesBytes(*request.body, file)) state.SkipWithError("the file's bytes were copied");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kFileSize) * state.iterations());
}
BENCHMARK(BuildBody)->Unit(benchmark::kMillisecond);

void CopySameBytes(benchmark::State& state) {
  const foundation::Data file = largeFile();
  std::vector<std::byte> target(kCopyWindow);
  for (auto _ : state) {
    for (std::size_t offset = 0; offset < kFileSize; offset += kCopyWindow) {
      std::memcpy(target.data(), file.bytes().data() + offset, kCopyWindow);
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kFileSize) * state.iterations());
}
BENCHMARK(CopySameBytes)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
