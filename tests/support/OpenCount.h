#pragma once

#include <filesystem>

#include "foundation/base/Handle.h"

namespace test {

/// Counts how often any process opens a file.
class OpenCount {
 public:
  explicit OpenCount(const std::filesystem::path& file);
  /// Since the last call or the construction.
  [[nodiscard]] int take() const;

 private:
  foundation::FileDescriptor events_;
};

}  // namespace test
