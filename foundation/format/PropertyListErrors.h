#pragma once

/// The platform's error codes (domain `kCocoaErrorDomain`) for property lists and JSON.
namespace foundation {

inline constexpr long kPropertyListReadCorrupt = 3840;
inline constexpr long kPropertyListWriteStream = 3851;

}  // namespace foundation
