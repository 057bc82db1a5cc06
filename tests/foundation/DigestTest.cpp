#include <string>

#include <gtest/gtest.h>

#include "foundation/Digest.h"
#include "foundation/Text.h"

namespace foundation {
namespace {

std::string finished(Digest& digest) {
  std::vector<std::byte> out(digest.size());
  digest.finish(out);
  return lowercaseHex(out);
}

TEST(DigestTest, ResetForgetsWhatWasFed) {
  Digest digest(DigestKind::sha384);
  EXPECT_EQ(digest.size(), 48u);
  digest.update(bytesOf("something else"));
  digest.reset();
  digest.update(bytesOf("abc"));
  const std::string expected =
      "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c8"
      "25a7";
  EXPECT_EQ(finished(digest), expected);
  digest.reset();
  digest.update(bytesOf("abc"));
  EXPECT_EQ(finished(digest), expected) << "second use";
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
