// Single changed bytes, at every kind of place.
#include "tests/toolchain/support/SignedAppFixture.h"
#include "toolchain/signature/Blobs.h"

namespace {

class CoverageTest : public SignedAppTest {};

TEST_F(CoverageTest, EveryPlaceOfTheExecutableIsCovered) {
  for (const std::size_t index : {0U, 1U}) {
    const auto target = slice(index);
    const auto code = target.signature->data.offset;
    for (const auto offset : {std::uint64_t{0}, target.signature->commandOffset + 8, code / 2,
                              target.text->file.size - 1, target.linkEdit->file.offset, code - 1}) {
      flip(executable_, target.file.offset + offset);
      EXPECT_EQ(verify().status, 1) << target.architecture << " byte " << offset;
      flip(executable_, target.file.offset + offset);
    }
  }
  EXPECT_EQ(verify().status, 0);
}

/// Every byte of a signature but those of the CMS counts, and so does every byte that the CMS
/// signs.
TEST_F(CoverageTest, EveryByteOfASignatureIsCovered) {
  const std::string good = contentsOf(library_);
  const auto image = toolchain::MachOFile::parse(bytesOf(good));
  const auto area = image->slices()[0].signature->data;
  const auto signature = toolchain::SuperBlob::parse(image->signatureArea(image->slices()[0]),
                                                     toolchain::magic::kEmbeddedSignature);
  const auto wrapper = signature->find(toolchain::slot::kSignature)->size();
  for (std::size_t i = 0; i < signature->bytes().size() - wrapper + 8; ++i) {
    flip(library_, area.offset + i);
    EXPECT_EQ(toolchain::verify({.code = library_}).status, 1) << "byte " << i;
    flip(library_, area.offset + i);
  }
  EXPECT_EQ(contentsOf(library_), good);
  flip(library_, area.offset + signature->bytes().size() - 1);
  EXPECT_EQ(toolchain::verify({.code = library_}).status, 1) << "the CMS signature's last byte";
}

}  // namespace
