#include <cstddef>
#include <cstring>

#include "macho/LoadCommandWalk.h"
#include "macho/MachOSlice.h"
#include "macho/core/Definitions.h"
#include "macho/private/ProcessImage.h"

namespace macho {
namespace {

struct Layout32 {
  using Segment = segment_command;
  using Section = section;
  static constexpr std::uint32_t kCommand = LC_SEGMENT;
};

struct Layout64 {
  using Segment = segment_command_64;
  using Section = section_64;
  static constexpr std::uint32_t kCommand = LC_SEGMENT_64;
};

struct FoundSection {
  QVTMachOSection place;
  std::uint32_t type = 0;
};

bool isNamed(const char (&stored)[16], const char* name) {
  return std::strncmp(stored, name, sizeof stored) == 0;
}

/// A search through all segments of a slice, as the platform's own look-up does it: an object
/// file's single nameless segment holds sections of any segment.
template <class Layout>
class SectionSearch {
 public:
  SectionSearch(const QVTMachOSlice& slice, const char* segmentName, const char* sectionName)
      : slice_(slice),
        reach_(slice.startAddress),
        segmentName_(segmentName),
        sectionName_(sectionName),
        left_(commandLimit(reach_)),
        isObject_(reach_.read<std::uint32_t>(slice.startAddress, offsetof(mach_header, filetype)) ==
                  MH_OBJECT) {}

  std::optional<FoundSection> run() {
    walkLoadCommands(slice_, [this](std::uint32_t cmd, std::uint32_t, const void* command) {
      if (cmd == Layout::kCommand) lookInSegment(command);
      return !found_ && left_ > 0;
    });
    return found_;
  }

 private:
  using Segment = typename Layout::Segment;
  using Section = typename Layout::Section;

  void lookInSegment(const void* command) {
    const auto segment = reach_.read<Segment>(command);
    if (!segment || !(isObject_ || isNamed(segment->segname, segmentName_))) return;
    for (std::uint64_t i = 0; i < segment->nsects && left_ > 0; ++i, --left_) {
      const auto candidate = reach_.read<Section>(command, sizeof(Segment) + i * sizeof(Section));
      if (!candidate) return;
      if (!matches(*candidate)) continue;
      found_ = FoundSection{{candidate->addr, candidate->size, candidate->offset},
                            candidate->flags & SECTION_TYPE};
      return;
    }
  }

  bool matches(const Section& candidate) const {
    return isNamed(candidate.sectname, sectionName_) && isNamed(candidate.segname, segmentName_);
  }

  const QVTMachOSlice& slice_;
  Reach reach_;
  const char* segmentName_;
  const char* sectionName_;
  std::uint64_t left_;  ///< sections that may still be looked at
  bool isObject_;
  std::optional<FoundSection> found_;
};

std::optional<FoundSection> findSection(const QVTMachOSlice* slice, const char* segmentName,
                                        const char* sectionName) {
  if (!QVTMachOSliceIsValid(slice) || !segmentName || !sectionName) return std::nullopt;
  if (QVTMachOSliceIs64Bit(slice)) {
    return SectionSearch<Layout64>(*slice, segmentName, sectionName).run();
  }
  return SectionSearch<Layout32>(*slice, segmentName, sectionName).run();
}

bool hasFileBytes(std::uint32_t type) {
  return type != S_ZEROFILL && type != S_GB_ZEROFILL && type != S_THREAD_LOCAL_ZEROFILL;
}

void storeAddress(const QVTMachOSlice* slice, const char* sectionName, std::uintptr_t slide,
                  std::uintptr_t* address) {
  QVTMachOSection section;
  if (!address || !QVTMachOSliceInitSectionByName(slice, SEG_TEXT, sectionName, &section)) return;
  *address = static_cast<std::uintptr_t>(section.address) + slide;
}

}  // namespace

bool QVTMachOSliceInitSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                    const char* sectionName, QVTMachOSection* section) {
  if (!section || !QVTMachOSliceIsValid(slice)) return false;
  const auto found = findSection(slice, segmentName, sectionName);
  *section = found ? found->place : QVTMachOSection{};
  return found.has_value();
}

bool QVTMachOSliceGetSectionByName(const QVTMachOSlice* slice, const char* segmentName,
                                   const char* sectionName, const void** bytes) {
  if (!bytes) return false;
  *bytes = nullptr;
  const auto found = findSection(slice, segmentName, sectionName);
  if (!found) return false;
  const Reach reach(slice->startAddress);
  if (found->place.offset > reach.left(slice->startAddress)) return false;
  const auto* const start =
      static_cast<const std::byte*>(slice->startAddress) + found->place.offset;
  if (hasFileBytes(found->type) && !reach.holds(start, found->place.size)) return false;
  *bytes = start;
  return true;
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
