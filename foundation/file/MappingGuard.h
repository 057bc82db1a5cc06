#pragma once

#include <filesystem>

#include "foundation/base/Bytes.h"
#include "foundation/base/Result.h"

namespace foundation {

/// Guards a mapped file against truncation by another process while it is read.
///
/// Touching pages that the file has lost, or that cannot be read from disk, raises SIGBUS, which
/// kills the process. In a guarded mapping the rest of the mapping, from that page on, is replaced
/// by zeros instead and the reader carries on. It must call `check` afterwards and discard what it
/// has read if that fails. The first guard installs the signal handler; faults outside guarded
/// mappings go to the previous handler. Safe from any thread.
class MappingGuard {
 public:
  /// Guards nothing.
  MappingGuard() = default;
  /// The mapping must outlive the guard.
  MappingGuard(Bytes mapping, const std::filesystem::path& path);
  MappingGuard(MappingGuard&& other) noexcept;
  MappingGuard& operator=(MappingGuard&& other) noexcept;
  ~MappingGuard();

  /// Fails with the file's path when a lost part of the mapping has been touched.
  [[nodiscard]] Result<> check() const;

  /// The same for every mapping that this process has ever guarded.
  [[nodiscard]] static Result<> checkAll();

 private:
  struct Watch;
  friend struct MappingWatches;
  Watch* watch_ = nullptr;
};

}  // namespace foundation
