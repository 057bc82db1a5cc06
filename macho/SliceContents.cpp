#include "macho/SliceContents.h"

#include <algorithm>

#include "foundation/base/Text.h"
#include "macho/core/LoadCommands.h"
#include "macho/private/LoadCommandWalk.h"
#include "macho/private/Mappings.h"

namespace macho {
namespace {

/// How often all commands that the file can hold may be read, counting all slices.
constexpr std::uint64_t kRepetitions = 4;
constexpr std::uint64_t kLeastTextLimit = std::uint64_t{4} << 20;

std::optional<DylibKind> dylibKind(std::uint32_t cmd) {
  switch (cmd) {
    case LC_LOAD_DYLIB:
      return DylibKind::plain;
    case LC_LOAD_WEAK_DYLIB:
      return DylibKind::weak;
    case LC_REEXPORT_DYLIB:
      return DylibKind::reexported;
    case LC_LOAD_UPWARD_DYLIB:
      return DylibKind::upward;
    case LC_LAZY_LOAD_DYLIB:
      return DylibKind::lazy;
    default:
      return std::nullopt;
  }
}

TargetVersions buildVersions(const void* command) {
  const auto record = foundation::readAt<build_version_command>(readableFrom(command), 0);
  if (!record) return {};
  return {QVTMachOVersionFromEncoded(record->minos), QVTMachOVersionFromEncoded(record->sdk)};
}

void readCommand(std::uint32_t cmd, const void* command, SliceContents& contents,
                 std::uint64_t& textLeft) {
  if (const auto kind = dylibKind(cmd)) {
    const auto path = dylibPath(command, textLeft);
    if (path) contents.dylibs.push_back({foundation::lossyUTF8(foundation::bytesOf(*path)), *kind});
  } else if (cmd == LC_UUID) {
    const std::uint8_t* const uuid = QVTMachOGetUUID(command);
    if (uuid) contents.uuid = QVTMachONormalizeUUID(uuid);
  } else if (platformOfVersionMin(cmd)) {
    contents.versionMin = {QVTMachOGetMinimumOSVersion(command),
                           QVTMachOGetLinkedSDKVersion(command)};
  } else if (cmd == LC_BUILD_VERSION && !contents.buildVersion) {
    contents.buildVersion = buildVersions(command);
  }
}

}  // namespace

ReadingBudget::ReadingBudget(const void* address)
    : commands(kRepetitions * commandLimit(address)),
      textBytes(std::max(kLeastTextLimit, mappingSize(address))) {}

SliceContents readContents(const QVTMachOSlice& slice, ReadingBudget& budget) {
  SliceContents contents;
  const foundation::Bytes bytes = readableFrom(slice.startAddress);
  const auto header = headerOf(bytes);
  contents.hasHeader = header && header->size <= bytes.size();
  if (budget.commands == 0) return contents;
  walkLoadCommands(slice, [&](std::uint32_t cmd, std::uint32_t, const void* command) {
    readCommand(cmd, command, contents, budget.textBytes);
    return --budget.commands > 0;
  });
  return contents;
}

}  // namespace macho
