#pragma once

namespace foundation {

/// Opens /dev/null on each of the descriptors 0 to 2 that is closed; otherwise the next file opened
/// would get that number, and the log lines with it.
void openMissingStandardDescriptors();

}  // namespace foundation
