#include "foundation/host/Host.h"

// The linker defines these two around a section of this name, where the executable has one.
// NOLINTBEGIN(bugprone-reserved-identifier): their names are the linker's
extern "C" {
extern const std::byte __start_info_plist[] __attribute__((weak));
extern const std::byte __stop_info_plist[] __attribute__((weak));
}
// NOLINTEND(bugprone-reserved-identifier)

namespace foundation::host {

Bytes embeddedInfo() {
  const std::byte* const start = __start_info_plist;
  const std::byte* const stop = __stop_info_plist;
  if (!start || !stop) return {};
  return {start, stop};
}

}  // namespace foundation::host
