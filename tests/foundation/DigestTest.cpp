#include <string>

#include <gtest/gtest.h>

#include "foundation/Digest.h"
#include "foundation/Text.h"

namespace foundation {
namespace {

template <class T>
std::string hex(const T& digest) {
  return lowercaseHex(digest);
}

std::string finished(Digest& digest) {
  std::vector<std::byte> out(digest.size());
  digest.finish(out);
  return hex(out);
}

// The examples of FIPS 180-2 and RFC 1321.
TEST(DigestTest, OneShotDigestsMatchPublishedExamples) {
  EXPECT_EQ(hex(sha1(bytesOf("abc"))), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(hex(sha1({})), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(hex(sha256(bytesOf("abc"))),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(md5(bytesOf("abc"))), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(DigestTest, PiecesGiveTheDigestOfTheWhole) {
  const std::string text(100'000, 'a');
  for (const std::size_t size : {1u, 63u, 64u, 4096u, 100000u}) {
    SCOPED_TRACE(size);
    Digest digest(DigestKind::sha1);
    for (std::size_t at = 0; at < text.size(); at += size) {
      digest.update(bytesOf(std::string_view(text).substr(at, size)));
    }
    EXPECT_EQ(finished(digest), hex(sha1(bytesOf(text))));
  }
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
