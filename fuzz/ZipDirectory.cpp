// Central directories of zip archives, and where the entries would be unpacked.
#include "preparation/ZipDirectory.h"

#include "fuzz/FuzzTarget.h"
#include "preparation/UnzipPaths.h"

void fuzz::readInput(foundation::Bytes input) {
  const auto directory = archive::ZipDirectory::read(input);
  if (!directory) return;
  for (const auto& entry : directory->entries()) {
    fuzz::require(!entry.name.empty() && entry.name.find('\0') == entry.name.npos);
    fuzz::require(entry.headerOffset < input.size() &&
                  entry.compressedSize < input.size() - entry.headerOffset);
    fuzz::require(directory->uncompressedSize() >= entry.uncompressedSize);
  }
  const UnzipPaths paths(*directory);
  for (const auto& app : paths.apps()) {
    fuzz::require(app.ends_with(".app") && app.find('/') == app.npos);
    fuzz::require(paths.reach("Payload/" + app));
  }
}
