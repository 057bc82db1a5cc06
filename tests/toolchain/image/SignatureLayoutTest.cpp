#include "tests/support/Test.h"
#include "tests/toolchain/image/SignableImage.h"
#include "toolchain/image/SignatureLayout.h"

namespace {

using toolchain::MachOFile;

TEST(SignatureLayoutTest, CodeWithoutAPlaceForItsSignatureIsRefused) {
  const std::string good = signableImage();
  const auto signedAt = [](std::uint32_t offset, std::uint32_t size) {
    return signableImage({command(macho::LC_CODE_SIGNATURE, {offset, size})});
  };
  const auto renamed = [&](std::size_t segment) { return poked(good, segment + 8, 'X'); };
  struct Row {
    const char* name;
    std::string bytes;
    std::string complaint;
    std::uint64_t room = 4096;
  };
  for (const Row& row : {
           Row{"no room", signableImage({}, kEndOfCommands + 15),
               "not enough room in load commands to add LC_CODE_SIGNATURE: they end at 256, the "
               "first section begins at 271"},
           Row{"just room", signableImage({}, kEndOfCommands + 16), ""},
           Row{"encrypted", signableImage({command(macho::LC_ENCRYPTION_INFO_64, {0, 0, 1, 0})}),
               "the code is encrypted (cryptid 1)"},
           Row{"no __TEXT", renamed(kTextCommand), "no __TEXT segment"},
           Row{"no __LINKEDIT", renamed(kLinkEditCommand), "no __LINKEDIT segment"},
           Row{"old signature before __LINKEDIT", signedAt(kLinkEditOffset - 16, 0x110),
               "the old signature at 1008 does not lie in __LINKEDIT"},
           Row{"old signature ends early", signedAt(kLinkEditOffset, 0xf0),
               "the old signature ends at 1264, not with the slice at 1280"},
           Row{"beyond 32 bits", good, "too large: the signature would end at 4294967296",
               0x100000000 - kImageSize},
           Row{"just 32 bits", good, "", 0xffffffff - kImageSize},
           Row{"__LINKEDIT is not last", poked(good, kLinkEditCommand + 40, kLinkEditOffset - 1),
               "__LINKEDIT at 1023 is not last: another segment ends at 1024"},
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
  const Segment text{"__TEXT", 0, 0x200};
  const Segment data{"__DATA", 0x200, 16};
  const Segment linkEdit{"__LINKEDIT", 0x400, 256};
  struct Row {
    std::vector<Segment> segments;
    std::string complaint;
    std::uint32_t signature = 0x400;
  };
  for (const Row& row : {
           Row{{{"__PAGEZERO", 0, 0}, text, data, linkEdit, {"__BSS", 0x100, 0}}, ""},
           Row{{{"__TEXT", 0, 0x201}, data, linkEdit},
               "segment __DATA at 512 begins before the end of __TEXT at 513"},
           Row{{text, {"__LINKEDIT", 0x300, 16}, {"__X", 0x400, 256}},
               "the last segment is __X, not __LINKEDIT"},
           Row{{}, "the last segment is none, not __LINKEDIT"},
           Row{{text, linkEdit},
               "the signature at 1023 of 256 bytes does not lie in __LINKEDIT",
               0x3ff},
           Row{{text, {"__LINKEDIT", 0x400, 255}},
               "the signature at 1024 of 256 bytes does not lie in __LINKEDIT"},
       }) {
    std::vector commands = {command(macho::LC_CODE_SIGNATURE, {row.signature, 0x100})};
    for (const auto& [name, offset, size] : row.segments) {
      commands.push_back(segmentCommand(name, offset, size));
    }
    std::string bytes = machO(commands);
    bytes.resize(0x500);
    const auto parsed = MachOFile::parse(keepForFuzzing("SignedCode", bytesOf(bytes)));
    ASSERT_TRUE(parsed) << problemOf(parsed);
    EXPECT_EQ(problemOf(toolchain::checkSegments(parsed->slices().front())), row.complaint);
  }
}

}  // namespace
