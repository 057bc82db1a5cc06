#pragma once

#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"

namespace toolchain {

/// Reads the header and load commands of the slice that lies at `extent`, which must be inside
/// `file`. Every number in the result was checked against the slice's size.
Result<Slice> readSlice(Bytes file, const Extent& extent);

}  // namespace toolchain
