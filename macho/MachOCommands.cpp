#include "macho/MachOCommands.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "macho/LoadCommandWalk.h"
#include "macho/Mappings.h"
#include "macho/core/Definitions.h"

namespace macho {
namespace {

constexpr std::uint64_t kSmallestTextLimit = std::uint64_t{4} << 20;
constexpr std::size_t kUUIDSize = sizeof(uuid_command::uuid);

template <class Record>
QVTMachOSegment segmentOf(const void* command) {
  QVTMachOSegment segment;
  const auto record = Reach(command).read<Record>(command);
  if (!record) return segment;
  std::copy_n(record->segname, sizeof segment.segname, segment.segname);
  segment.vmaddr = record->vmaddr;
  segment.vmsize = record->vmsize;
  return segment;
}

/// The packed version at `offset` of a command.
QVTMachOVersion versionAt(const void* command, std::size_t offset) {
  return QVTMachOVersionFromEncoded(
      Reach(command).read<std::uint32_t>(command, offset).value_or(0));
}

}  // namespace

std::uint64_t textLimit(const Reach& reach) { return std::max(kSmallestTextLimit, reach.size()); }

std::optional<std::string_view> dylibPath(const void* command, std::uint64_t& textLeft) {
  const Reach reach(command);
  const auto name = reach.read<std::uint32_t>(command, offsetof(dylib_command, name));
  const std::byte* const path = name ? reach.advance(command, *name) : nullptr;
  if (!path) return std::nullopt;
  const auto most = std::min<std::uint64_t>(reach.left(path), textLeft);
  const std::size_t length = ::strnlen(reinterpret_cast<const char*>(path), most);
  textLeft -= std::min<std::uint64_t>(length + 1, most);
  if (length == most) return std::nullopt;
  return std::string_view(reinterpret_cast<const char*>(path), length);
}

const std::uint8_t* QVTMachOGetUUID(const void* command) {
  const Reach reach(command);
  const std::byte* const uuid = reach.advance(command, offsetof(uuid_command, uuid));
  if (!reach.holds(uuid, kUUIDSize)) return nullptr;
  return reinterpret_cast<const std::uint8_t*>(uuid);
}

const char* QVTMachOGetDylibPath(const void* command) {
  std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();
  const auto path = dylibPath(command, unlimited);
  return path ? path->data() : nullptr;
}

bool QVTMachOGetEncrypted(const void* command) {
  return Reach(command)
             .read<std::uint32_t>(command, offsetof(encryption_info_command, cryptid))
             .value_or(0) > 0;
}

QVTMachOVersion QVTMachOGetMinimumOSVersion(const void* command) {
  return versionAt(command, offsetof(version_min_command, version));
}

QVTMachOVersion QVTMachOGetLinkedSDKVersion(const void* command) {
  return versionAt(command, offsetof(version_min_command, sdk));
}

QVTMachOSegment QVTMachOGetSegmentCommand(const void* command) {
  const auto cmd = Reach(command).read<std::uint32_t>(command);
  if (cmd == LC_SEGMENT) return segmentOf<segment_command>(command);
  if (cmd == LC_SEGMENT_64) return segmentOf<segment_command_64>(command);
  return {};
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
