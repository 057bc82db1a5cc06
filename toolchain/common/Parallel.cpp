#include "toolchain/common/Parallel.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace toolchain {

void inParallel(std::size_t count, std::size_t grain,
                const std::function<ParallelWorker()>& makeWorker) {
  std::atomic<std::size_t> next{0};
  const auto run = [&] {
    const ParallelWorker work = makeWorker();
    for (std::size_t begin = next.fetch_add(grain); begin < count; begin = next.fetch_add(grain)) {
      work(begin, std::min(count, begin + grain));
    }
  };
  const std::size_t pieces = (count + grain - 1) / grain;
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::jthread> threads;
  for (std::size_t i = 1; i < std::min(pieces, cores); ++i) threads.emplace_back(run);
  run();
}

}  // namespace toolchain
