// Single changed bytes, at every kind of place.
#include <gmock/gmock.h>

#include "tests/toolchain/support/SignedAppFixture.h"
#include "toolchain/signature/Blobs.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using foundation::bytesOf;
using testing::Contains;
using toolchain::Verdict;

class CoverageTest : public SignedAppTest {};

/// Single bytes of the executable, at every kind of place of each slice.
TEST_F(CoverageTest, EveryPlaceOfTheExecutableIsCovered) {
  for (const std::size_t index : {0U, 1U}) {
    const auto target = slice(index);
    const auto base = target.file.offset;
    const auto code = target.signature->data.offset;
    for (const auto offset : {std::uint64_t{0}, target.signature->commandOffset + 8, code / 2,
                              target.text->file.size - 1, target.linkEdit->file.offset, code - 1}) {
      restore();
      flip(executable(), base + offset);
      EXPECT_EQ(verify().status, 1) << target.architecture << " byte " << offset;
    }
  }
}

TEST_F(CoverageTest, TheUniversalHeaderIsCovered) {
  constexpr std::size_t kTable = 8;
  constexpr std::size_t kEntry = 20;
  constexpr std::size_t kCapabilities = 4;  // the highest byte of a subtype, which may differ
  for (std::size_t i = 0; i < kTable + 3 * kEntry; ++i) {
    if (i >= kTable && i < kTable + 2 * kEntry && (i - kTable) % kEntry == kCapabilities) continue;
    flip(executable(), i);
    EXPECT_EQ(verify().status, 1) << "byte " << i;
    flip(executable(), i);
  }
  EXPECT_EQ(verify().status, 0);
}

/// Nested code that the seal names by its hash: what the hash does not cover is looked at too.
TEST_F(CoverageTest, NestedCodeThatIsSealedByHashIsCovered) {
  writeFile(app() / "Resources/a", "a");
  fs::create_directories(app() / "Frameworks/F.framework/Resources");
  fs::create_directories(app() / "Frameworks/F.framework/PlugIns");
  fs::copy_file(app() / "Frameworks/libf.dylib", app() / "Frameworks/F.framework/PlugIns/g.dylib");
  toolchain::SignOptions options{.code = app(), .identity = "-", .force = true, .deep = true};
  ASSERT_TRUE(toolchain::sign(options));
  ASSERT_EQ(verify().status, 0);
  for (const char* place :
       {"Frameworks/libf.dylib", "Frameworks/F.framework/F", "Frameworks/F.framework/data",
        "Frameworks/F.framework/Info.plist", "Frameworks/F.framework/PlugIns/g.dylib"}) {
    const auto middle = fs::file_size(app() / place) / 2;
    flip(app() / place, middle);
    const Verdict verdict = verify();
    EXPECT_EQ(verdict.status, 1) << place;
    EXPECT_THAT(verdict.statements, Contains(testing::StartsWith("In subcomponent: "))) << place;
    flip(app() / place, middle);
  }
  EXPECT_EQ(verify().status, 0);
}

/// Every byte of a signature but those of the CMS counts, and so does every byte that the CMS
/// signs.
TEST_F(CoverageTest, EveryByteOfASignatureIsCovered) {
  const fs::path library = app() / "Frameworks/libf.dylib";
  const std::string good = test::contentsOf(library);
  const auto image = toolchain::MachOFile::parse(bytesOf(good));
  const auto area = image->slices()[0].signature->data;
  const auto signature = toolchain::SuperBlob::parse(image->signatureArea(image->slices()[0]),
                                                     toolchain::magic::kEmbeddedSignature);
  const auto wrapper = signature->find(toolchain::slot::kSignature)->size();
  for (std::size_t i = 0; i < signature->bytes().size() - wrapper + 8; ++i) {
    flip(library, area.offset + i);
    EXPECT_EQ(toolchain::verify({.code = library}).status, 1) << "byte " << i;
    flip(library, area.offset + i);
  }
  EXPECT_EQ(test::contentsOf(library), good);
  flip(library, area.offset + signature->bytes().size() - 1);
  EXPECT_EQ(toolchain::verify({.code = library}).status, 1) << "the CMS signature's last byte";
}

}  // namespace
