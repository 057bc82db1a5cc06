#include "macho/MachOSlice.h"

#include <algorithm>

#include "macho/core/Architectures.h"
#include "macho/core/LoadCommands.h"
#include "macho/private/LoadCommandWalk.h"
#include "macho/private/Mappings.h"
#include "macho/private/ProcessImage.h"

namespace macho {
namespace {

using foundation::Bytes;

constexpr std::uint64_t kLeastCommandLimit = 65536;

bool isNamed(const Name& stored, std::string_view name) {
  return textOf(stored) == name.substr(0, stored.size());
}

/// Searches all segments of a slice as the platform does: the single nameless segment of an object
/// file holds sections of any segment.
std::optional<Section> findSection(const QVTMachOSlice* slice, const char* segmentName,
                                   const char* sectionName) {
  if (!QVTMachOSliceIsValid(slice) || !segmentName || !sectionName) return std::nullopt;
  const std::uint32_t wanted = QVTMachOSliceIs64Bit(slice) ? LC_SEGMENT_64 : LC_SEGMENT;
  const auto header = headerOf(readableFrom(slice->startAddress));
  const bool isObject = header && header->fields.filetype == MH_OBJECT;
  std::uint64_t sectionsLeft = commandLimit(slice->startAddress);
  std::optional<Section> found;
  const auto lookInSegment = [&](const void* command) {
    const Bytes bytes = readableFrom(command);
    const auto segment = segmentOf(bytes);
    if (!segment || !(isObject || isNamed(segment->name, segmentName))) return;
    for (std::uint64_t i = 0; i < segment->sectionCount && sectionsLeft > 0; ++i, --sectionsLeft) {
      const auto section = sectionOf(bytes, i);
      if (!section) return;
      if (!isNamed(section->name, sectionName) || !isNamed(section->segmentName, segmentName)) {
        continue;
      }
      found = section;
      return;
    }
  };
  walkLoadCommands(*slice, [&](std::uint32_t cmd, std::uint32_t, const void* command) {
    if (cmd == wanted) lookInSegment(command);
    return !found && sectionsLeft > 0;
  });
  return found;
}

void storeAddress(const QVTMachOSlice* slice, const char* sectionName, std::uintptr_t slide,
                  std::uintptr_t* address) {
  QVTMachOSection section;
  if (!address || !QVTMachOSliceInitSectionByName(slice, SEG_TEXT, sectionName, &section)) return;
  *address = static_cast<std::uintptr_t>(section.address) + slide;
}

}  // namespace

std::uint64_t commandLimit(const void* address) {
  return std::max(kLeastCommandLimit, mappingSize(address) / sizeof(load_command));
}

void walkLoadCommands(const QVTMachOSlice& slice,
                      const std::function<bool(std::uint32_t, std::uint32_t, const void*)>& visit) {
  const Bytes bytes = readableFrom(slice.startAddress);
  const auto header = headerOf(bytes);
  if (!header || header->size > bytes.size()) return;
  const std::uint64_t limit = commandLimit(slice.startAddress);
  LoadCommandCursor cursor(bytes, *header);
  while (const auto command = cursor.next()) {
    if (!visit(command->command, command->size, bytes.data() + command->offset)) return;
    if (command->size == 0 && cursor.index() >= limit) return;
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
  if (firstCommand) *firstCommand = nullptr;
  if (commandCount) *commandCount = 0;
  if (!QVTMachOSliceIsValid(slice)) return;
  const Bytes bytes = readableFrom(slice->startAddress);
  const auto header = headerOf(bytes);
  if (!header) return;
  if (bytes.size() >= offsetof(mach_header, filetype)) {
    slice->cputype = header->fields.cputype;
    slice->cpusubtype = header->fields.cpusubtype;
  }
  if (header->size > bytes.size()) return;
  if (firstCommand) *firstCommand = bytes.data() + header->size;
  if (commandCount) *commandCount = header->fields.ncmds;
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

bool QVTMachOSliceInitSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                    const char* sectionName, QVTMachOSection* section) {
  if (!section || !QVTMachOSliceIsValid(slice)) return false;
  const auto found = findSection(slice, segmentName, sectionName);
  *section =
      found ? QVTMachOSection{found->address, found->size, found->offset} : QVTMachOSection{};
  return found.has_value();
}

bool QVTMachOSliceGetSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                   const char* sectionName, const void** bytes) {
  if (!bytes) return false;
  *bytes = nullptr;
  const auto found = findSection(slice, segmentName, sectionName);
  if (!found) return false;
  const auto content = foundation::slice(readableFrom(slice->startAddress), found->offset,
                                         found->isZeroFilled() ? 0 : found->size);
  if (content) *bytes = content->data();
  return content.has_value();
}

void QVTMachOSliceGetUnwindInformation(const QVTMachOSlice* slice, std::uintptr_t* ehFrame,
                                       std::uintptr_t* unwindInfo) {
  if ((!ehFrame && !unwindInfo) || !QVTMachOSliceIsValid(slice)) return;
  const auto slide = host::slideOfImage(slice->startAddress);
  if (!slide) return;
  storeAddress(slice, "__unwind_info", *slide, unwindInfo);
  storeAddress(slice, "__eh_frame", *slide, ehFrame);
}

}  // namespace macho
