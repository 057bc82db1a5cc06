#pragma once

#include <cstddef>
#include <functional>

namespace toolchain {

/// Calls `work(begin, end)` for consecutive pieces of [0, count), at most `grain` long, on as many
/// threads as there are cores and pieces; returns when all have run. Each thread gets its worker
/// from one call of `makeWorker`, so that its state needs no lock. Workers must not throw.
using ParallelWorker = std::function<void(std::size_t begin, std::size_t end)>;
void inParallel(std::size_t count, std::size_t grain,
                const std::function<ParallelWorker()>& makeWorker);

}  // namespace toolchain
