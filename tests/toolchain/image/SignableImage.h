#pragma once

#include "tests/support/MachOFixture.h"

namespace test {

inline constexpr std::uint32_t kLinkEditOffset = 0x400;
inline constexpr std::uint32_t kImageSize = 0x500;

// Where the load commands of such an image begin.
inline constexpr std::size_t kTextCommand = 32;
inline constexpr std::size_t kLinkEditCommand = kTextCommand + 72 + 80;
inline constexpr std::uint32_t kEndOfCommands = kLinkEditCommand + 72;

/// A thin image with __TEXT, whose only section begins at `firstSection`, and __LINKEDIT.
inline MachOImage signableImage(std::uint32_t firstSection = 0x200) {
  return MachOImage::arm64()
      .segment("__TEXT", 0, kLinkEditOffset, {{"__text", 0, 16, firstSection}})
      .segment("__LINKEDIT", kLinkEditOffset, kImageSize - kLinkEditOffset)
      .content(kImageSize);
}

}  // namespace test
