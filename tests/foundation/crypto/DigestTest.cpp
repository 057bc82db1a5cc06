#include "foundation/crypto/Digest.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Digest, ResetForgetsWhatWasFed) {
  Digest digest(DigestKind::sha384);
  digest.update(bytesOf("something else"));
  for (const char* use : {"first", "second"}) {
    digest.reset();
    digest.update(bytesOf("abc"));
    std::vector<std::byte> out(digest.size());
    digest.finish(out);
    EXPECT_EQ(hexOf(out),
              "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358ba"
              "eca134c825a7")
        << use;
  }
}

TEST(DigestDeathTest, MisuseStopsTheProcess) {
  Digest digest(DigestKind::sha256);
  std::array<std::byte, 31> tooSmall;
  EXPECT_DEATH(digest.finish(tooSmall), "out.size\\(\\) >= size\\(\\)");
  std::array<std::byte, 32> enough;
  digest.finish(enough);
  EXPECT_DEATH(digest.update(bytesOf("more")), "finished");
}

}  // namespace
}  // namespace foundation
