#pragma once

namespace foundation {

/// Opens /dev/null on each of the descriptors 0 to 2 that was closed when the program started; else
/// the next file opened would get its number, and the log lines with it.
void openMissingStandardDescriptors();

}  // namespace foundation
