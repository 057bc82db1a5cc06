#include "macho/MachOSlice.h"

#include <algorithm>
#include <cstddef>

#include "macho/LoadCommandWalk.h"
#include "macho/core/Architectures.h"
#include "macho/core/Definitions.h"
#include "macho/private/ProcessImage.h"

namespace macho {
namespace {

constexpr std::uint64_t kSmallestLimit = 65536;

/// Size of the header that begins with this magic; 0 for no magic of a thin file.
std::uint64_t headerSize(std::uint32_t magic) {
  switch (magic) {
    case MH_MAGIC:
    case MH_CIGAM:
      return sizeof(mach_header);
    case MH_MAGIC_64:
    case MH_CIGAM_64:
      return sizeof(mach_header_64);
    default:
      return 0;
  }
}

struct HeaderEnd {
  const void* firstCommand = nullptr;
  std::uint32_t commandCount = 0;
};

HeaderEnd readHeader(QVTMachOSlice& slice) {
  const void* const start = slice.startAddress;
  const Reach reach(start);
  const auto magic = reach.read<std::uint32_t>(start);
  const std::uint64_t size = magic ? headerSize(*magic) : 0;
  if (size == 0) return {};
  slice.cputype =
      reach.read<std::int32_t>(start, offsetof(mach_header, cputype)).value_or(slice.cputype);
  slice.cpusubtype =
      reach.read<std::int32_t>(start, offsetof(mach_header, cpusubtype)).value_or(slice.cpusubtype);
  if (!reach.holds(start, size)) return {};
  return {static_cast<const std::byte*>(start) + size,
          *reach.read<std::uint32_t>(start, offsetof(mach_header, ncmds))};
}

}  // namespace

std::uint64_t commandLimit(const Reach& reach) {
  return std::max(kSmallestLimit, reach.size() / sizeof(load_command));
}

void walkLoadCommands(const QVTMachOSlice& slice,
                      const std::function<bool(std::uint32_t, std::uint32_t, const void*)>& visit) {
  if (!slice.startAddress) return;
  QVTMachOSlice read = slice;
  const auto [first, count] = readHeader(read);
  const Reach reach(slice.startAddress);
  const std::uint64_t limit = commandLimit(reach);
  const void* command = first;
  for (std::uint64_t index = 0; command && index < count; ++index) {
    const auto header = reach.read<load_command>(command);
    if (!header || !visit(header->cmd, header->cmdsize, command)) return;
    if (header->cmdsize == 0 && index + 1 >= limit) return;
    command = reach.advance(command, header->cmdsize);
  }
}

QVTMachOSlice QVTMachOSliceGetCurrent() { return host::currentImage(); }

const char* QVTMachOSliceGetExecutablePath(const QVTMachOSlice* slice) {
  return QVTMachOSliceIsValid(slice) ? host::pathOfImage(slice->startAddress) : nullptr;
}

QVTMachOSlice QVTMachOSliceWithHeader(const void* header) { return {header}; }

bool QVTMachOSliceIsValid(const QVTMachOSlice* slice) { return slice && slice->startAddress; }

bool QVTMachOSliceIs64Bit(const QVTMachOSlice* slice) {
  return slice && (slice->cputype & CPU_ARCH_ABI64) != 0;
}

void QVTMachOHeaderValues(QVTMachOSlice* slice, const void** firstCommand,
                          std::uint32_t* commandCount) {
  const HeaderEnd end = QVTMachOSliceIsValid(slice) ? readHeader(*slice) : HeaderEnd{};
  if (firstCommand) *firstCommand = end.firstCommand;
  if (commandCount) *commandCount = end.commandCount;
}

const char* QVTMachOSliceGetArchitectureName(const QVTMachOSlice* slice) {
  const auto* const known =
      slice ? architectureOf(slice->cputype, static_cast<std::uint32_t>(slice->cpusubtype))
            : nullptr;
  return known ? known->name : "unknown";
}

void QVTMachOSliceEnumerateLoadCommands(const QVTMachOSlice* slice,
                                        const LoadCommandCallback& callback) {
  if (!callback || !QVTMachOSliceIsValid(slice)) return;
  walkLoadCommands(*slice, [&](std::uint32_t cmd, std::uint32_t cmdsize, const void* command) {
    callback(cmd, cmdsize, command);
    return true;
  });
}

}  // namespace macho
