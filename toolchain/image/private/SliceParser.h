#pragma once

#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"

namespace toolchain {

/// Reads and checks the header and load commands of the slice at `extent`, which must lie inside
/// `file`.
Result<Slice> readSlice(Bytes file, const Extent& extent);

}  // namespace toolchain
