#pragma once

#include <cstddef>
#include <string_view>

namespace toolchain::codesign {

/// Lines on one standard stream, no more than fit into a pipe that nobody reads. Lines beyond the
/// limit are only counted; the last line gives the count.
class LineOutput {
 public:
  static constexpr std::size_t kLimit = std::size_t{32} << 10;

  explicit LineOutput(int descriptor) : descriptor_(descriptor) {}
  LineOutput(const LineOutput&) = delete;
  LineOutput& operator=(const LineOutput&) = delete;
  /// Prints the count, if there is one.
  ~LineOutput();

  /// Control characters in `text` are escaped (`foundation::escapingControlCharacters`), so that
  /// each call makes one line. Failures to write are ignored.
  void line(std::string_view text);

 private:
  int descriptor_;
  std::size_t printed_ = 0;
  std::size_t leftOut_ = 0;
};

}  // namespace toolchain::codesign
