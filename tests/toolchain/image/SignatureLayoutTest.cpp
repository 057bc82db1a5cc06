#include "tests/support/Test.h"
#include "tests/toolchain/image/SignableImage.h"
#include "toolchain/image/SignatureLayout.h"

namespace {

using toolchain::MachOFile;

TEST(SignatureLayoutTest, CodeWithoutAPlaceForItsSignatureIsRefused) {
  const auto with = [](auto finish) { return signableImage(0x1000, finish); };
  const auto signedAt = [&](std::uint32_t offset, std::uint32_t size) {
    return with([=](MachOImage& image) { image.signature(offset, size); });
  };
  const std::string good = signableImage();
  const auto renamed = [&](std::size_t command) {
    std::string bytes = good;
    bytes[command + 8 + 2] = 'X';
    return bytes;
  };
  std::string early = good;
  poke(early, kLinkEditCommand + 40, kLinkEditOffset - 1);
  struct Row {
    const char* name;
    std::string bytes;
    std::string complaint;
    std::uint64_t room = 4096;
  };
  for (const Row& row : {
           Row{"good", good, ""},
           Row{"no room", signableImage(kEndOfCommands + 15),
               "not enough room in load commands to add LC_CODE_SIGNATURE: they end at 256, the "
               "first section begins at 271"},
           Row{"just room", signableImage(kEndOfCommands + 16), ""},
           Row{"encrypted", with([](MachOImage& image) { image.encryption(1); }),
               "the code is encrypted (cryptid 1)"},
           Row{"no __TEXT", renamed(kTextCommand), "no __TEXT segment"},
           Row{"no __LINKEDIT", renamed(kLinkEditCommand), "no __LINKEDIT segment"},
           Row{"old signature before __LINKEDIT", signedAt(kLinkEditOffset - 16, 0x110),
               "the old signature at 16368 does not lie in __LINKEDIT"},
           Row{"old signature ends early", signedAt(kLinkEditOffset, 0xf0),
               "the old signature ends at 16624, not with the slice at 16640"},
           Row{"beyond 32 bits", good, "too large: the signature would end at 4294967312",
               0x100000010 - kImageSize},
           Row{"just 32 bits", good, "", 0xffffffff - kImageSize},
           Row{"__LINKEDIT is not last", early,
               "__LINKEDIT at 16383 is not last: another segment ends at 16384"},
           Row{"trailing bytes", good + std::string(15, '\1'),
               "bytes follow __LINKEDIT, which ends at 16640 of 16655"},
           Row{"a few trailing zeros", good + std::string(15, '\0'), ""},
           Row{"many trailing zeros", good + std::string(16, '\0'), "bytes follow __LINKEDIT"},
       }) {
    SCOPED_TRACE(row.name);
    const auto image = MachOFile::parse(keepForFuzzing("SignedCode", bytesOf(row.bytes)));
    ASSERT_TRUE(image) << problemOf(image);
    const auto problem = problemOf(toolchain::layOut(*image, image->slices().front(), row.room));
    EXPECT_THAT(problem, HasSubstr(row.complaint));
    EXPECT_EQ(problem.empty(), row.complaint.empty());
  }
}

TEST(SignatureLayoutTest, SegmentsLieInOrderWithLinkEditLast) {
  struct Segment {
    const char* name;
    std::uint64_t offset;
    std::uint64_t size;
  };
  const Segment text{"__TEXT", 0, 0x2000};
  const Segment data{"__DATA", 0x2000, 16};
  const Segment linkEdit{"__LINKEDIT", kLinkEditOffset, 256};
  struct Row {
    std::vector<Segment> segments;
    std::string complaint;
    std::uint32_t signature = kLinkEditOffset;
  };
  for (const Row& row : {
           Row{{{"__PAGEZERO", 0, 0}, text, data, linkEdit, {"__BSS", 0x1000, 0}}, ""},
           Row{{{"__TEXT", 0, 0x2001}, data, linkEdit},
               "segment __DATA at 8192 begins before the end of __TEXT at 8193"},
           Row{{data, text, linkEdit},
               "segment __TEXT at 0 begins before the end of __DATA at 8208"},
           Row{{text, {"__LINKEDIT", 0x3000, 16}, {"__X", 0x4000, 256}},
               "the last segment is __X, not __LINKEDIT"},
           Row{{}, "the last segment is none, not __LINKEDIT"},
           Row{{text, linkEdit},
               "the signature at 16383 of 256 bytes does not lie in __LINKEDIT",
               kLinkEditOffset - 1},
           Row{{text, {"__LINKEDIT", kLinkEditOffset, 255}},
               "the signature at 16384 of 256 bytes does not lie in __LINKEDIT"},
       }) {
    MachOImage image = MachOImage::arm64();
    for (const auto& [name, offset, size] : row.segments) image.fileSegment(name, offset, size);
    const std::string bytes = image.signature(row.signature, 0x100).paddedTo(kImageSize).bytes();
    const auto parsed = MachOFile::parse(keepForFuzzing("SignedCode", bytesOf(bytes)));
    ASSERT_TRUE(parsed) << problemOf(parsed);
    EXPECT_EQ(problemOf(toolchain::checkSegments(parsed->slices().front())), row.complaint);
  }
}

}  // namespace
