#pragma once

namespace foundation {

/// Opens /dev/null on each closed descriptor from 0 to 2. Otherwise the next file opened would get
/// that number, and with it the log lines.
void openMissingStandardDescriptors();

}  // namespace foundation
