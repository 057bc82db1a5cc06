// Central directories of zip archives, and where the entries would be unpacked.
#include "preparation/ZipDirectory.h"

#include "fuzz/FuzzTarget.h"
#include "preparation/UnzipPaths.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto directory = archive::ZipDirectory::read(fuzz::bytesOf(data, size));
  if (!directory) return 0;
  for (const auto& entry : directory->entries()) {
    fuzz::require(!entry.name.empty() && entry.name.find('\0') == entry.name.npos);
    fuzz::require(entry.headerOffset < size && entry.compressedSize < size - entry.headerOffset);
    fuzz::require(directory->uncompressedSize() >= entry.uncompressedSize);
  }
  const UnzipPaths paths(*directory);
  for (const auto& app : paths.apps()) {
    fuzz::require(app.ends_with(".app") && app.find('/') == app.npos);
    fuzz::require(paths.reach("Payload/" + app));
  }
  return 0;
}
