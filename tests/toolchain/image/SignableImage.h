#pragma once

#include <functional>

#include "tests/support/MachOFixture.h"

namespace test {

inline constexpr std::uint32_t kLinkEditOffset = 0x4000;
inline constexpr std::uint32_t kImageSize = 0x4100;

// Where the load commands of such an image begin.
inline constexpr std::size_t kTextCommand = 32;
inline constexpr std::size_t kLinkEditCommand = kTextCommand + 72 + 80;
inline constexpr std::uint32_t kEndOfCommands = kLinkEditCommand + 72;

/// A thin image with __TEXT, whose only section begins at `firstSection`, and __LINKEDIT. `finish`
/// adds further commands.
inline std::string signableImage(
    std::uint32_t firstSection = 0x1000,
    const std::function<void(MachOImage&)>& finish = [](MachOImage&) {}) {
  MachOImage image = MachOImage::arm64();
  image
      .fileSegment("__TEXT", 0, kLinkEditOffset,
                   {{"__text", std::string(16, 'c'), 0, 0, firstSection}})
      .fileSegment("__LINKEDIT", kLinkEditOffset, kImageSize - kLinkEditOffset)
      .paddedTo(kImageSize);
  finish(image);
  return image.bytes();
}

}  // namespace test
