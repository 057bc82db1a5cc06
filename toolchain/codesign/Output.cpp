#include "toolchain/codesign/Output.h"

#include <string>

#include "foundation/base/Text.h"
#include "foundation/base/WriteAll.h"

namespace toolchain::codesign {

namespace {

/// For the line that gives the count.
constexpr std::size_t kReserve = 64;

}  // namespace

void LineOutput::line(std::string_view text) {
  const std::string whole = foundation::escapingControlCharacters(text) + "\n";
  if (leftOut_ > 0 || whole.size() > kLimit - kReserve - printed_) {
    ++leftOut_;
    return;
  }
  printed_ += whole.size();
  foundation::writeAll(descriptor_, whole);
}

LineOutput::~LineOutput() {
  if (leftOut_ == 0) return;
  const std::string count =
      "(" + std::to_string(leftOut_) + (leftOut_ == 1 ? " line" : " lines") + " left out)\n";
  foundation::writeAll(descriptor_, count);
}

}  // namespace toolchain::codesign
