#include "macho/core/Architectures.h"

#include <algorithm>
#include <iterator>

#include "macho/core/Definitions.h"

namespace macho {
namespace {

/// The platform's own names, as in `arch(3)` and `lipo`. The first row with a name stands for it:
/// linkers write either subtype for the watch.
constexpr Architecture kArchitectures[] = {
    {CPU_TYPE_ARM64, CPU_SUBTYPE_ARM64_ALL, "arm64"},
    {CPU_TYPE_ARM64, CPU_SUBTYPE_ARM64_V8, "arm64v8"},
    {CPU_TYPE_ARM64, CPU_SUBTYPE_ARM64E, "arm64e"},
    {CPU_TYPE_ARM64_32, CPU_SUBTYPE_ARM64_32_V8, "arm64_32"},
    {CPU_TYPE_ARM64_32, CPU_SUBTYPE_ARM64_32_ALL, "arm64_32"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_ALL, "arm"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V4T, "armv4t"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V5TEJ, "armv5"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_XSCALE, "xscale"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V6, "armv6"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V6M, "armv6m"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7, "armv7"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7F, "armv7f"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7S, "armv7s"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7K, "armv7k"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7M, "armv7m"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V7EM, "armv7em"},
    {CPU_TYPE_ARM, CPU_SUBTYPE_ARM_V8, "armv8"},
    {CPU_TYPE_X86_64, CPU_SUBTYPE_X86_64_ALL, "x86_64"},
    {CPU_TYPE_X86_64, CPU_SUBTYPE_X86_64_H, "x86_64h"},
    {CPU_TYPE_X86, CPU_SUBTYPE_I386_ALL, "i386"},
    {CPU_TYPE_X86, 0x04, "i486"},
    {CPU_TYPE_X86, 0x84, "i486SX"},
    {CPU_TYPE_X86, 0x05, "pentium"},
    {CPU_TYPE_X86, 0x16, "pentpro"},
    {CPU_TYPE_X86, 0x36, "pentIIm3"},
    {CPU_TYPE_X86, 0x56, "pentIIm5"},
    {CPU_TYPE_X86, 0x0a, "pentium4"},
    {CPU_TYPE_POWERPC, 0, "ppc"},
    {CPU_TYPE_POWERPC, 1, "ppc601"},
    {CPU_TYPE_POWERPC, 3, "ppc603"},
    {CPU_TYPE_POWERPC, 4, "ppc603e"},
    {CPU_TYPE_POWERPC, 5, "ppc603ev"},
    {CPU_TYPE_POWERPC, 6, "ppc604"},
    {CPU_TYPE_POWERPC, 7, "ppc604e"},
    {CPU_TYPE_POWERPC, 9, "ppc750"},
    {CPU_TYPE_POWERPC, 10, "ppc7400"},
    {CPU_TYPE_POWERPC, 11, "ppc7450"},
    {CPU_TYPE_POWERPC, 100, "ppc970"},
    {CPU_TYPE_POWERPC64, 0, "ppc64"},
    {CPU_TYPE_POWERPC64, 100, "ppc970-64"},
    {CPU_TYPE_MC680x0, 1, "m68k"},
    {CPU_TYPE_MC680x0, 2, "m68040"},
    {CPU_TYPE_MC680x0, 3, "m68030"},
    {CPU_TYPE_HPPA, 0, "hppa"},
    {CPU_TYPE_HPPA, 1, "hppa7100LC"},
    {CPU_TYPE_MC88000, 0, "m88k"},
    {CPU_TYPE_SPARC, 0, "sparc"},
    {CPU_TYPE_I860, 0, "i860"},
};

}  // namespace

const Architecture* architectureOf(std::int32_t cpuType, std::uint32_t cpuSubtype) {
  const std::uint32_t subtype = cpuSubtype & ~CPU_SUBTYPE_MASK;
  const auto* const known = std::ranges::find_if(kArchitectures, [&](const Architecture& each) {
    return each.cpuType == cpuType && each.cpuSubtype == subtype;
  });
  return known == std::end(kArchitectures) ? nullptr : known;
}

const Architecture* architectureNamed(std::string_view name) {
  const auto* const known = std::ranges::find(kArchitectures, name, &Architecture::name);
  return known == std::end(kArchitectures) ? nullptr : known;
}

}  // namespace macho
