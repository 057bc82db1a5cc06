#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Decoders of single load commands, whose `cmd` the caller has checked. A field that does not lie
/// wholly inside the file counts as missing.
namespace macho {

struct QVTMachOVersion {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t bugfix = 0;

  friend bool operator==(const QVTMachOVersion&, const QVTMachOVersion&) = default;
};

struct QVTMachOSegment {
  char segname[16] = {};  ///< as stored, not terminated when 16 long
  std::uint64_t vmaddr = 0;
  std::uint64_t vmsize = 0;
};

/// The 16 bytes of an LC_UUID, or null.
const std::uint8_t* QVTMachOGetUUID(const void* command);
/// The path of a dylib_command; null if it does not end inside the file.
const char* QVTMachOGetDylibPath(const void* command);
/// True if the cryptid of an encryption_info_command is above 0.
bool QVTMachOGetEncrypted(const void* command);

/// Of a version_min_command; 0.0.0 if missing.
QVTMachOVersion QVTMachOGetMinimumOSVersion(const void* command);
QVTMachOVersion QVTMachOGetLinkedSDKVersion(const void* command);

/// Of an LC_SEGMENT or LC_SEGMENT_64; zeros for null and for any other command.
QVTMachOSegment QVTMachOGetSegmentCommand(const void* command);

/// Packed as xxxx.yy.zz in bytes.
QVTMachOVersion QVTMachOVersionFromEncoded(std::uint32_t value);
/// "9.0.0"; absent for null.
std::optional<std::string> QVTMachOFormatVersion(const QVTMachOVersion* version);

/// 16 bytes as 32 lower-case hexadecimal digits.
std::string QVTMachONormalizeUUID(const std::uint8_t* bytes);

}  // namespace macho
