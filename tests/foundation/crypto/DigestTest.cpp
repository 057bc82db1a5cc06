#include "foundation/crypto/Digest.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(DigestDeathTest, ResetForgetsWhatWasFedAndMisuseStopsTheProcess) {
  Digest digest(DigestKind::sha256);
  digest.update(bytesOf("something else"));
  std::array<std::byte, 31> tooSmall;
  EXPECT_DEATH(digest.finish(tooSmall), "out.size\\(\\) >= size\\(\\)");
  std::array<std::byte, 32> enough;
  digest.finish(enough);
  EXPECT_DEATH(digest.update(bytesOf("more")), "finished");
  digest.reset();
  digest.update(bytesOf("abc"));
  digest.finish(enough);
  EXPECT_EQ(hexOf(enough), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
}  // namespace foundation
