#include "inspect/BinaryFacts.h"

#include "foundation/base/Error.h"
#include "foundation/base/Text.h"
#include "inspect/Arguments.h"
#include "macho/LoadCommandWalk.h"
#include "macho/core/Definitions.h"

namespace inspect {

namespace {

/// How often all commands that a file could hold may be read over, for all its slices together.
constexpr std::uint64_t kRepetitions = 4;

/// Empty for a command that links no library.
std::string_view dylibKind(std::uint32_t cmd) {
  switch (cmd) {
    case macho::LC_LOAD_DYLIB:
      return "plain";
    case macho::LC_LOAD_WEAK_DYLIB:
      return "weak";
    case macho::LC_REEXPORT_DYLIB:
      return "re-exported";
    case macho::LC_LOAD_UPWARD_DYLIB:
      return "upward";
    case macho::LC_LAZY_LOAD_DYLIB:
      return "lazy";
    default:
      return {};
  }
}

bool isVersionMin(std::uint32_t cmd) {
  return cmd == macho::LC_VERSION_MIN_MACOSX || cmd == macho::LC_VERSION_MIN_IPHONEOS ||
         cmd == macho::LC_VERSION_MIN_TVOS || cmd == macho::LC_VERSION_MIN_WATCHOS;
}

/// The packed version at `offset` of a command; linkers write 0 for one that they do not know.
std::optional<macho::QVTMachOVersion> versionAt(const void* command, std::size_t offset) {
  const auto packed = macho::Reach(command).read<std::uint32_t>(command, offset);
  if (packed.value_or(0) == 0) return std::nullopt;
  return macho::QVTMachOVersionFromEncoded(*packed);
}

/// Reads all slices of one file with a share of work that they have in common.
class FactsReader {
 public:
  explicit FactsReader(const macho::QVTMachOFile& file)
      : commandsLeft_(kRepetitions * macho::commandLimit(macho::Reach(file.mappedFile))),
        textLeft_(macho::textLimit(macho::Reach(file.mappedFile))) {}

  SliceFacts read(const macho::QVTMachOSlice& slice) {
    SliceFacts facts;
    bool hasBuildVersion = false;
    if (commandsLeft_ == 0) return facts;
    macho::walkLoadCommands(slice, [&](std::uint32_t cmd, std::uint32_t, const void* command) {
      if (const auto kind = dylibKind(cmd); !kind.empty()) {
        if (const auto path = macho::dylibPath(command, textLeft_)) {
          facts.linkedDylibs.push_back({foundation::lossyUTF8(foundation::bytesOf(*path)), kind});
        }
      } else if (cmd == macho::LC_BUILD_VERSION && !hasBuildVersion) {
        hasBuildVersion = true;
        facts.minimumOSVersion = versionAt(command, offsetof(macho::build_version_command, minos));
        facts.linkedSDKVersion = versionAt(command, offsetof(macho::build_version_command, sdk));
      } else if (isVersionMin(cmd) && !hasBuildVersion) {
        facts.minimumOSVersion = versionAt(command, offsetof(macho::version_min_command, version));
        facts.linkedSDKVersion = versionAt(command, offsetof(macho::version_min_command, sdk));
      }
      return --commandsLeft_ > 0;
    });
    return facts;
  }

 private:
  std::uint64_t commandsLeft_;
  std::uint64_t textLeft_;
};

bool hasHeader(macho::QVTMachOSlice slice) {
  const void* firstCommand = nullptr;
  std::uint32_t count = 0;
  macho::QVTMachOHeaderValues(&slice, &firstCommand, &count);
  return firstCommand != nullptr;
}

/// Open as long as it lives.
struct OpenFile {
  explicit OpenFile(const std::string& path)
      : isOpen(macho::QVTMachOFileInitWithPath(&file, path.c_str())) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { macho::QVTMachOFileDestroy(&file); }

  macho::QVTMachOFile file;
  bool isOpen;
};

}  // namespace

foundation::Result<Binary> openBinary(const std::string& path) {
  Binary binary{QVTMachOBinary::MachOBinaryWithPath(path), {}};
  const OpenFile open(path);
  if (!binary.object || !open.isOpen) {
    return unreadable(path, "not a regular file, or too short for a Mach-O file");
  }
  bool isMachO = false;
  FactsReader reader(open.file);
  macho::QVTMachOFileEnumerateSlices(&open.file, [&](const macho::QVTMachOSlice* slice) {
    isMachO = isMachO || hasHeader(*slice);
    binary.facts.push_back(reader.read(*slice));
  });
  if (const auto intact = macho::checkMapping(open.file.mappedFile); !intact) {
    throw foundation::Exception(intact.error().localizedDescription());
  }
  if (!isMachO) return unreadable(path, "not a Mach-O file");
  // Somebody may have put another file in its place meanwhile.
  binary.facts.resize(binary.object->slices().size());
  return binary;
}

}  // namespace inspect
