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
inline std::string signableImage(const std::vector<std::string>& moreCommands = {},
                                 std::uint32_t firstSection = 0x200) {
  std::vector commands = {
      segmentCommand("__TEXT", 0, kLinkEditOffset, {{"__text", 0, 16, firstSection}}),
      segmentCommand("__LINKEDIT", kLinkEditOffset, kImageSize - kLinkEditOffset)};
  commands.insert(commands.end(), moreCommands.begin(), moreCommands.end());
  std::string image = machO(commands);
  image.resize(kImageSize);
  return image;
}

}  // namespace test
