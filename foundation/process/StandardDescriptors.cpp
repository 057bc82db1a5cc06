#include "foundation/process/StandardDescriptors.h"

#include <fcntl.h>

#include "foundation/base/Handle.h"

namespace foundation {

void openMissingStandardDescriptors() {
  // open() returns the lowest free descriptor, so the gaps fill in order.
  for (FileDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC)); null && null.get() <= 2;
       null.reset(::open("/dev/null", O_RDWR | O_CLOEXEC))) {
    const int standard = null.release();
    ::fcntl(standard, F_SETFD, 0);
  }
}

}  // namespace foundation
