#pragma once

#include "foundation/base/Bytes.h"
#include "foundation/file/MappedFile.h"

/// The mappings of all open files by address, so that a bare pointer into one of them is enough to
/// know how far it may be read. Safe from any thread.
namespace macho {

/// Keeps the mapping until `forgetMapping` is given its first byte.
void rememberMapping(foundation::MappedFile file);
void forgetMapping(const void* start);
/// Fails, naming the file, when a mapping that is still known was truncated while it was read.
foundation::Result<> checkMapping(const void* start);

/// From `address` to the end of the known mapping around it; to the end of all memory when it is in
/// none. Empty for null.
foundation::Bytes readableFrom(const void* address);
/// Bytes of the known mapping around `address`; 0 when it is in none.
std::uint64_t mappingSize(const void* address);

}  // namespace macho
