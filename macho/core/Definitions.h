#pragma once

#include <cstddef>
#include <cstdint>

/// Records and numbers of Apple's published Mach-O format, as far as they are used here: see
/// <mach-o/loader.h>, <mach-o/fat.h> and <mach/machine.h> of the open Darwin sources.
///
/// A file may hold the records at any alignment: copy them out. Thin files are little-endian on all
/// current hosts; universal headers are big-endian.
namespace macho {

// Universal files

inline constexpr std::uint32_t FAT_MAGIC = 0xcafebabe;
inline constexpr std::uint32_t FAT_CIGAM = 0xbebafeca;
inline constexpr std::uint32_t FAT_CIGAM_64 = 0xbfbafeca;

struct fat_header {
  std::uint32_t magic;
  std::uint32_t nfat_arch;
};

struct fat_arch {
  std::int32_t cputype;
  std::int32_t cpusubtype;
  std::uint32_t offset;
  std::uint32_t size;
  std::uint32_t align;  ///< as a power of two
};

struct fat_arch_64 {
  std::int32_t cputype;
  std::int32_t cpusubtype;
  std::uint64_t offset;
  std::uint64_t size;
  std::uint32_t align;
  std::uint32_t reserved;
};

constexpr std::uint32_t byteSwapped(std::uint32_t value) { return __builtin_bswap32(value); }
constexpr std::uint64_t byteSwapped(std::uint64_t value) { return __builtin_bswap64(value); }
constexpr std::int32_t byteSwapped(std::int32_t value) {
  return static_cast<std::int32_t>(byteSwapped(static_cast<std::uint32_t>(value)));
}
constexpr fat_header byteSwapped(const fat_header& header) {
  return {byteSwapped(header.magic), byteSwapped(header.nfat_arch)};
}
constexpr fat_arch byteSwapped(const fat_arch& arch) {
  return {byteSwapped(arch.cputype), byteSwapped(arch.cpusubtype), byteSwapped(arch.offset),
          byteSwapped(arch.size), byteSwapped(arch.align)};
}
constexpr fat_arch_64 byteSwapped(const fat_arch_64& arch) {
  return {byteSwapped(arch.cputype), byteSwapped(arch.cpusubtype), byteSwapped(arch.offset),
          byteSwapped(arch.size),    byteSwapped(arch.align),      byteSwapped(arch.reserved)};
}

// Thin headers

inline constexpr std::uint32_t MH_MAGIC = 0xfeedface;
inline constexpr std::uint32_t MH_CIGAM = 0xcefaedfe;
inline constexpr std::uint32_t MH_MAGIC_64 = 0xfeedfacf;
inline constexpr std::uint32_t MH_CIGAM_64 = 0xcffaedfe;

struct mach_header {
  std::uint32_t magic;
  std::int32_t cputype;
  std::int32_t cpusubtype;
  std::uint32_t filetype;
  std::uint32_t ncmds;
  std::uint32_t sizeofcmds;
  std::uint32_t flags;
};

struct mach_header_64 : mach_header {
  std::uint32_t reserved;
};

inline constexpr std::uint32_t MH_OBJECT = 1;
inline constexpr std::uint32_t MH_EXECUTE = 2;
inline constexpr std::uint32_t MH_DYLIB = 6;
inline constexpr std::uint32_t MH_DYLINKER = 7;
inline constexpr std::uint32_t MH_BUNDLE = 8;
inline constexpr std::uint32_t MH_KEXT_BUNDLE = 11;

inline constexpr std::uint32_t MH_NOUNDEFS = 0x1;
inline constexpr std::uint32_t MH_DYLDLINK = 0x4;
inline constexpr std::uint32_t MH_TWOLEVEL = 0x80;
inline constexpr std::uint32_t MH_PIE = 0x200000;

// Processors

inline constexpr std::int32_t CPU_ARCH_ABI64 = 0x01000000;
inline constexpr std::int32_t CPU_ARCH_ABI64_32 = 0x02000000;
/// High byte of a subtype: capabilities, which are not part of the architecture's name.
inline constexpr std::uint32_t CPU_SUBTYPE_MASK = 0xff000000;

inline constexpr std::int32_t CPU_TYPE_MC680x0 = 6;
inline constexpr std::int32_t CPU_TYPE_X86 = 7;
inline constexpr std::int32_t CPU_TYPE_X86_64 = CPU_TYPE_X86 | CPU_ARCH_ABI64;
inline constexpr std::int32_t CPU_TYPE_HPPA = 11;
inline constexpr std::int32_t CPU_TYPE_ARM = 12;
inline constexpr std::int32_t CPU_TYPE_ARM64 = CPU_TYPE_ARM | CPU_ARCH_ABI64;
inline constexpr std::int32_t CPU_TYPE_ARM64_32 = CPU_TYPE_ARM | CPU_ARCH_ABI64_32;
inline constexpr std::int32_t CPU_TYPE_MC88000 = 13;
inline constexpr std::int32_t CPU_TYPE_SPARC = 14;
inline constexpr std::int32_t CPU_TYPE_I860 = 15;
inline constexpr std::int32_t CPU_TYPE_POWERPC = 18;
inline constexpr std::int32_t CPU_TYPE_POWERPC64 = CPU_TYPE_POWERPC | CPU_ARCH_ABI64;

inline constexpr std::int32_t CPU_SUBTYPE_I386_ALL = 3;
inline constexpr std::int32_t CPU_SUBTYPE_X86_64_ALL = 3;
inline constexpr std::int32_t CPU_SUBTYPE_X86_64_H = 8;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_ALL = 0;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V4T = 5;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V6 = 6;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V5TEJ = 7;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_XSCALE = 8;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7 = 9;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7F = 10;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7S = 11;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7K = 12;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V8 = 13;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V6M = 14;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7M = 15;
inline constexpr std::int32_t CPU_SUBTYPE_ARM_V7EM = 16;
inline constexpr std::int32_t CPU_SUBTYPE_ARM64_ALL = 0;
inline constexpr std::int32_t CPU_SUBTYPE_ARM64_V8 = 1;
inline constexpr std::int32_t CPU_SUBTYPE_ARM64E = 2;
inline constexpr std::int32_t CPU_SUBTYPE_ARM64_32_ALL = 0;
inline constexpr std::int32_t CPU_SUBTYPE_ARM64_32_V8 = 1;

// Load commands

inline constexpr std::uint32_t LC_REQ_DYLD = 0x80000000;
inline constexpr std::uint32_t LC_SEGMENT = 0x1;
inline constexpr std::uint32_t LC_SYMTAB = 0x2;
inline constexpr std::uint32_t LC_LOAD_DYLIB = 0xc;
inline constexpr std::uint32_t LC_LOAD_WEAK_DYLIB = 0x18 | LC_REQ_DYLD;
inline constexpr std::uint32_t LC_SEGMENT_64 = 0x19;
inline constexpr std::uint32_t LC_UUID = 0x1b;
inline constexpr std::uint32_t LC_CODE_SIGNATURE = 0x1d;
inline constexpr std::uint32_t LC_REEXPORT_DYLIB = 0x1f | LC_REQ_DYLD;
inline constexpr std::uint32_t LC_LAZY_LOAD_DYLIB = 0x20;
inline constexpr std::uint32_t LC_ENCRYPTION_INFO = 0x21;
inline constexpr std::uint32_t LC_LOAD_UPWARD_DYLIB = 0x23 | LC_REQ_DYLD;
inline constexpr std::uint32_t LC_VERSION_MIN_MACOSX = 0x24;
inline constexpr std::uint32_t LC_VERSION_MIN_IPHONEOS = 0x25;
inline constexpr std::uint32_t LC_ENCRYPTION_INFO_64 = 0x2c;
inline constexpr std::uint32_t LC_VERSION_MIN_TVOS = 0x2f;
inline constexpr std::uint32_t LC_VERSION_MIN_WATCHOS = 0x30;
inline constexpr std::uint32_t LC_BUILD_VERSION = 0x32;

struct load_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;  ///< including what follows this record
};

/// Followed by `nsects` records of type section.
template <class Word>
struct segment_command_of {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  char segname[16];  ///< padded with zeros, not terminated when 16 long
  Word vmaddr;
  Word vmsize;
  Word fileoff;
  Word filesize;
  std::uint32_t maxprot;
  std::uint32_t initprot;
  std::uint32_t nsects;
  std::uint32_t flags;
};
using segment_command = segment_command_of<std::uint32_t>;
using segment_command_64 = segment_command_of<std::uint64_t>;

template <class Word>
struct section_of {
  char sectname[16];
  char segname[16];
  Word addr;
  Word size;
  std::uint32_t offset;
  std::uint32_t align;
  std::uint32_t reloff;
  std::uint32_t nreloc;
  std::uint32_t flags;
  std::uint32_t reserved1;
  std::uint32_t reserved2;
};
struct section : section_of<std::uint32_t> {};
/// Its `reserved3` is the padding at the end.
struct section_64 : section_of<std::uint64_t> {};

/// Low byte of a section's flags: its type. These three take up no bytes in the file.
inline constexpr std::uint32_t SECTION_TYPE = 0xff;
inline constexpr std::uint32_t S_ZEROFILL = 0x1;
inline constexpr std::uint32_t S_GB_ZEROFILL = 0xc;
inline constexpr std::uint32_t S_THREAD_LOCAL_ZEROFILL = 0x12;

struct uuid_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint8_t uuid[16];
};

struct symtab_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t symoff;
  std::uint32_t nsyms;
  std::uint32_t stroff;
  std::uint32_t strsize;
};

/// The published record wraps the last four in a struct `dylib`. `name` is the offset of the path
/// from the start of the command.
struct dylib_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t name;
  std::uint32_t timestamp;
  std::uint32_t current_version;
  std::uint32_t compatibility_version;
};

/// Versions are X.Y.Z in nibbles xxxx.yy.zz.
struct version_min_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t version;
  std::uint32_t sdk;
};

/// Followed by `ntools` records of type build_tool_version.
struct build_version_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t platform;
  std::uint32_t minos;
  std::uint32_t sdk;
  std::uint32_t ntools;
};

inline constexpr std::uint32_t PLATFORM_MACOS = 1;
inline constexpr std::uint32_t PLATFORM_IOS = 2;
inline constexpr std::uint32_t PLATFORM_TVOS = 3;
inline constexpr std::uint32_t PLATFORM_WATCHOS = 4;

/// LC_CODE_SIGNATURE and other commands that point to a range of __LINKEDIT.
struct linkedit_data_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t dataoff;
  std::uint32_t datasize;
};

/// LC_ENCRYPTION_INFO_64 adds four bytes of padding.
struct encryption_info_command {
  std::uint32_t cmd;
  std::uint32_t cmdsize;
  std::uint32_t cryptoff;
  std::uint32_t cryptsize;
  std::uint32_t cryptid;  ///< 0: not encrypted
};

inline constexpr char SEG_TEXT[] = "__TEXT";
inline constexpr char SEG_LINKEDIT[] = "__LINKEDIT";

static_assert(sizeof(fat_arch) == 20 && sizeof(fat_arch_64) == 32);
static_assert(sizeof(mach_header) == 28 && sizeof(mach_header_64) == 32);
static_assert(sizeof(segment_command) == 56 && sizeof(segment_command_64) == 72);
static_assert(sizeof(section) == 68 && sizeof(section_64) == 80);
static_assert(sizeof(dylib_command) == 24 && sizeof(build_version_command) == 24);

}  // namespace macho
