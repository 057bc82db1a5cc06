#include "macho/MachOCommands.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "macho/core/LoadCommands.h"
#include "macho/private/LoadCommandWalk.h"
#include "macho/private/Mappings.h"

namespace macho {
namespace {

constexpr std::size_t kUUIDSize = sizeof(uuid_command::uuid);

/// The word at `offset` of a command; 0 when it lies outside the file.
std::uint32_t wordAt(const void* command, std::size_t offset) {
  return foundation::readAt<std::uint32_t>(readableFrom(command), offset).value_or(0);
}

}  // namespace

std::optional<std::string_view> dylibPath(const void* command, std::uint64_t& textLeft) {
  const foundation::Bytes bytes = readableFrom(command);
  const auto name = foundation::readAt<std::uint32_t>(bytes, offsetof(dylib_command, name));
  if (!name || *name >= bytes.size()) return std::nullopt;
  const auto* const path = reinterpret_cast<const char*>(bytes.data()) + *name;
  const std::uint64_t most = std::min<std::uint64_t>(bytes.size() - *name, textLeft);
  const std::size_t length = ::strnlen(path, most);
  textLeft -= std::min<std::uint64_t>(length + 1, most);
  if (length == most) return std::nullopt;
  return std::string_view(path, length);
}

const std::uint8_t* QVTMachOGetUUID(const void* command) {
  const auto uuid =
      foundation::slice(readableFrom(command), offsetof(uuid_command, uuid), kUUIDSize);
  return uuid ? reinterpret_cast<const std::uint8_t*>(uuid->data()) : nullptr;
}

const char* QVTMachOGetDylibPath(const void* command) {
  std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();
  const auto path = dylibPath(command, unlimited);
  return path ? path->data() : nullptr;
}

bool QVTMachOGetEncrypted(const void* command) {
  return wordAt(command, offsetof(encryption_info_command, cryptid)) > 0;
}

QVTMachOVersion QVTMachOGetMinimumOSVersion(const void* command) {
  return QVTMachOVersionFromEncoded(wordAt(command, offsetof(version_min_command, version)));
}

QVTMachOVersion QVTMachOGetLinkedSDKVersion(const void* command) {
  return QVTMachOVersionFromEncoded(wordAt(command, offsetof(version_min_command, sdk)));
}

QVTMachOSegment QVTMachOGetSegmentCommand(const void* command) {
  QVTMachOSegment segment;
  if (const auto found = segmentOf(readableFrom(command))) {
    std::ranges::copy(found->name, segment.segname);
    segment.vmaddr = found->address;
    segment.vmsize = found->memorySize;
  }
  return segment;
}

QVTMachOVersion QVTMachOVersionFromEncoded(std::uint32_t value) {
  return {value >> 16, (value >> 8) & 0xff, value & 0xff};
}

std::optional<std::string> QVTMachOFormatVersion(const QVTMachOVersion* version) {
  if (!version) return std::nullopt;
  return foundation::format("%d.%d.%d", static_cast<std::int32_t>(version->major),
                            static_cast<std::int32_t>(version->minor),
                            static_cast<std::int32_t>(version->bugfix));
}

std::string QVTMachONormalizeUUID(const std::uint8_t* bytes) {
  if (!bytes) return {};
  return foundation::lowercaseHex(std::as_bytes(std::span(bytes, kUUIDSize)));
}

}  // namespace macho
