#include "macho/QVTMachOSlice.h"

#include <limits>

#include "foundation/base/Text.h"
#include "macho/LoadCommandWalk.h"
#include "macho/core/Definitions.h"

std::shared_ptr<QVTMachOSlice> QVTMachOSlice::initWithSlice(const macho::QVTMachOSlice* slice) {
  const macho::Reach reach(slice ? slice->startAddress : nullptr);
  std::uint64_t commandsLeft = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t textLeft = macho::textLimit(reach);
  return initWithSlice(slice, commandsLeft, textLeft);
}

std::shared_ptr<QVTMachOSlice> QVTMachOSlice::initWithSlice(const macho::QVTMachOSlice* slice,
                                                            std::uint64_t& commandsLeft,
                                                            std::uint64_t& textLeft) {
  auto object =
      std::shared_ptr<QVTMachOSlice>(new QVTMachOSlice(slice ? *slice : macho::QVTMachOSlice{}));
  if (commandsLeft == 0) return object;
  macho::walkLoadCommands(object->slice_,
                          [&](std::uint32_t cmd, std::uint32_t, const void* command) {
                            object->readCommand(cmd, command, textLeft);
                            return --commandsLeft > 0;
                          });
  return object;
}

std::shared_ptr<QVTMachOSlice> QVTMachOSlice::runningSlice() {
  const macho::QVTMachOSlice current = macho::QVTMachOSliceGetCurrent();
  return initWithSlice(&current);
}

std::string QVTMachOSlice::architectureName() const {
  return macho::QVTMachOSliceGetArchitectureName(&slice_);
}

void QVTMachOSlice::readCommand(std::uint32_t cmd, const void* command, std::uint64_t& textLeft) {
  switch (cmd) {
    case macho::LC_LOAD_DYLIB:
      addDylib(command, textLeft);
      break;
    case macho::LC_UUID:
      if (const std::uint8_t* const uuid = macho::QVTMachOGetUUID(command)) {
        uuidString_ = macho::QVTMachONormalizeUUID(uuid);
      }
      break;
    case macho::LC_VERSION_MIN_MACOSX:
    case macho::LC_VERSION_MIN_IPHONEOS:
    case macho::LC_VERSION_MIN_TVOS:
    case macho::LC_VERSION_MIN_WATCHOS:
      minimumOSVersion_ = macho::QVTMachOGetMinimumOSVersion(command);
      linkedSDKVersion_ = macho::QVTMachOGetLinkedSDKVersion(command);
      break;
    default:
      break;
  }
}

void QVTMachOSlice::addDylib(const void* command, std::uint64_t& textLeft) {
  const auto path = macho::dylibPath(command, textLeft);
  if (path) linkedDylibs_.push_back(foundation::lossyUTF8(foundation::bytesOf(*path)));
}
