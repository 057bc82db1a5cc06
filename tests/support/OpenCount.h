#pragma once

#include <filesystem>

#include "foundation/base/Handle.h"

namespace test {

/// Counts how often any process opens one file, from here on.
class OpenCount {
 public:
  explicit OpenCount(const std::filesystem::path& file);
  /// Since the last call, or since the beginning.
  [[nodiscard]] int take() const;

 private:
  foundation::FileDescriptor events_;
};

}  // namespace test
