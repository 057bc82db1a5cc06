#include "foundation/file/MappedFile.h"
#include "tests/support/Test.h"
#include "toolchain/sign/private/Replacement.h"

namespace {

/// Whether the system copies from the old file or this process writes, the new one is the same.
TEST(ReplacementTest, PiecesOfAnOpenFileAndOthersMakeOneFile) {
  const TemporaryFolder folder;
  const std::string large = noise(std::size_t{20} << 20);
  const fs::path old = folder.write("old", large);
  const auto mapped = foundation::MappedFile::open(old);
  ASSERT_TRUE(mapped);
  const Bytes bytes = mapped->bytes();
  const toolchain::Pieces pieces = {bytesOf("head"), bytes.subspan(4), bytesOf(large).first(10),
                                    bytes.first(3)};
  // Nothing can be copied from a file that is open for writing alone.
  for (const int mode : {O_RDONLY, O_WRONLY}) {
    const foundation::FileDescriptor file(::open(old.c_str(), mode | O_CLOEXEC));
    ASSERT_TRUE(file);
    toolchain::Replacement replacement;
    const auto made = replacement.prepare(folder / "new", toolchain::sizeOf(pieces));
    ASSERT_TRUE(made);
    ASSERT_TRUE(made->write({{0, pieces}}, {file.get(), bytes}));
    ASSERT_TRUE(replacement.commit({folder / "new"}));
    EXPECT_TRUE(contentsOf(folder / "new") ==
                "head" + large.substr(4) + large.substr(0, 10) + large.substr(0, 3));
  }
}

TEST(ReplacementTest, ALinkThatIsPutIntoThePathIsNotFollowed) {
  const TemporaryFolder folder;
  const fs::path victim = folder / "victim";
  writeFile(victim / "inner/file", "theirs");
  const auto before = snapshot(victim);
  const fs::path tree = folder / "tree";
  fs::create_directory_symlink(victim, tree);
  const toolchain::Pieces content = {bytesOf("ours")};
  for (const char* const name : {"file", "inner/file", "inner/made/file"}) {
    toolchain::Replacement replacement;
    EXPECT_EQ(problemOf(replacement.prepare(tree / name, content)),
              (tree / name).parent_path().string() + " is not a folder");
    EXPECT_FALSE(replacement.remove(tree / name)) << name;
  }
  fs::remove(tree);
  writeFile(tree / "inner/file", "old");
  {
    toolchain::Replacement replacement;
    ASSERT_TRUE(replacement.prepare(tree / "inner/file", content));
    fs::rename(tree, folder / "moved");
    fs::create_directory_symlink(victim, tree);
    EXPECT_FALSE(replacement.commit({tree / "inner/file"}));
  }
  EXPECT_TRUE(snapshot(victim) == before);
  EXPECT_EQ(contentsOf(folder / "moved/inner/file"), "old");
}

}  // namespace
