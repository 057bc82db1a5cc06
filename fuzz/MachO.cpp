// Mach-O files as the tool reads them: slices, load commands, sections, identifiers.
#include "foundation/base/Error.h"
#include "fuzz/FuzzTarget.h"
#include "macho/MachOFile.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"

namespace {

/// Reads every byte of a section in the file. A zero-filled section has none, and its offset may be
/// anything.
void readSection(const macho::QVTMachOFile& file, const void* bytes, std::uint64_t size) {
  const auto* const start = static_cast<const std::uint8_t*>(bytes);
  const auto* const end = static_cast<const std::uint8_t*>(file.mappedFile) + file.mappedSize;
  if (start > end || size > static_cast<std::uint64_t>(end - start)) return;
  volatile std::uint32_t sum = 0;
  for (std::uint64_t i = 0; i < size; ++i) sum = sum + start[i];
}

void readSections(const macho::QVTMachOFile& file, const macho::QVTMachOSlice& slice) {
  constexpr const char* kNames[][2] = {
      {"__TEXT", "__text"}, {"__TEXT", "__info_plist"}, {"__DATA", "__data"}, {"", ""}};
  for (const auto& [segment, name] : kNames) {
    const void* bytes = nullptr;
    macho::QVTMachOSection section;
    const bool isThere = macho::QVTMachOSliceInitSectionByName(&slice, segment, name, &section);
    if (!macho::QVTMachOSliceGetSectionByName(&slice, segment, name, &bytes)) continue;
    fuzz::require(isThere);
    readSection(file, bytes, section.size);
  }
}

void readCommands(const macho::QVTMachOSlice& slice) {
  macho::QVTMachOSliceEnumerateLoadCommands(&slice,
                                            [](std::uint32_t, std::uint32_t, const void* command) {
                                              macho::QVTMachOGetUUID(command);
                                              macho::QVTMachOGetDylibPath(command);
                                              macho::QVTMachOGetEncrypted(command);
                                              macho::QVTMachOGetMinimumOSVersion(command);
                                              macho::QVTMachOGetLinkedSDKVersion(command);
                                              macho::QVTMachOGetSegmentCommand(command);
                                            });
}

void readSlices(const char* path) {
  constexpr int kMaximum = 2;  // each may have as many commands as fit into the file
  macho::QVTMachOFile file;
  if (macho::QVTMachOFileInitWithPath(&file, path)) {
    int count = 0;
    macho::QVTMachOFileEnumerateSlices(&file, [&](const macho::QVTMachOSlice* slice) {
      if (++count > kMaximum) return;
      readSections(file, *slice);
      readCommands(*slice);
    });
    macho::QVTMachOFileSliceWithArchitectureName(&file, "arm64");
  }
  macho::QVTMachOFileDestroy(&file);
}

void readBinary(const std::string& path) {
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path);
  if (!binary) return;
  binary->enumerateUUIDs([](const std::optional<std::string>& uuid, const std::string&) {
    fuzz::require(!uuid || uuid->size() == 32);
  });
  try {
    fuzz::require(binary->instanceIdentifier().size() == 40);
  } catch (const foundation::Exception&) {
    // A slice without UUID.
  }
}

}  // namespace

void fuzz::readInput(foundation::Bytes input) {
  const fuzz::MemoryFile file(input);
  readSlices(file.path().c_str());
  readBinary(file.path());
}
