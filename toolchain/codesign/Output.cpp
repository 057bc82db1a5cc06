#include "toolchain/codesign/Output.h"

#include <cerrno>
#include <string>

#include <unistd.h>

#include "foundation/base/Text.h"

namespace toolchain::codesign {

namespace {

/// For the line that gives the count.
constexpr std::size_t kReserve = 64;

}  // namespace

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void LineOutput::line(std::string_view text) {
  const std::string whole = foundation::escapingControlCharacters(text) + "\n";
  if (leftOut_ > 0 || whole.size() > kLimit - kReserve - printed_) {
    ++leftOut_;
    return;
  }
  printed_ += whole.size();
  writeAll(descriptor_, whole);
}

LineOutput::~LineOutput() {
  if (leftOut_ == 0) return;
  writeAll(descriptor_,
           "(" + std::to_string(leftOut_) + (leftOut_ == 1 ? " line" : " lines") + " left out)\n");
}

}  // namespace toolchain::codesign
