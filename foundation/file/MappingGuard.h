#pragma once

#include <filesystem>

#include "foundation/base/Bytes.h"
#include "foundation/base/Result.h"

namespace foundation {

/// Watches a mapped file for being cut short by somebody else while it is read.
///
/// The system answers a touch of pages that the file has lost with SIGBUS, which ends a process.
/// For a watched mapping the lost part, up to the mapping's end, is replaced by zeros instead, and
/// the reader goes on to its end: it must ask afterwards, and must not use what it has read. The
/// same holds for pages that cannot be read from their medium. The signal's handler is installed
/// with the first guard; whatever is no watched mapping is left to the handler before it. Safe from
/// several threads.
class MappingGuard {
 public:
  /// Watches nothing.
  MappingGuard() = default;
  /// The mapping must outlive the guard.
  MappingGuard(Bytes mapping, const std::filesystem::path& path);
  MappingGuard(MappingGuard&& other) noexcept;
  MappingGuard& operator=(MappingGuard&& other) noexcept;
  ~MappingGuard();

  /// Fails, naming the file, when a part of the mapping that was touched was lost.
  [[nodiscard]] Result<> check() const;

  /// The same for every mapping that this process has ever watched.
  [[nodiscard]] static Result<> checkAll();

 private:
  struct Watch;
  friend struct MappingWatches;
  Watch* watch_ = nullptr;
};

}  // namespace foundation
