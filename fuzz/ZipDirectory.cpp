// Central directories of zip archives.
#include "preparation/ZipDirectory.h"

#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto directory = archive::ZipDirectory::read(fuzz::bytesOf(data, size));
  if (!directory) return 0;
  for (const auto& entry : directory->entries()) {
    fuzz::require(!entry.name.empty() && entry.name.find('\0') == entry.name.npos);
    fuzz::require(entry.headerOffset < size && entry.compressedSize < size - entry.headerOffset);
    fuzz::require(directory->uncompressedSize() >= entry.uncompressedSize);
  }
  return 0;
}
