#include "foundation/file/MappedFile.h"
#include "tests/support/Test.h"
#include "toolchain/sign/private/Replacement.h"

namespace {

/// Whether the system copies from the old file or this process writes, the new one is the same.
TEST(Replacement, PiecesOfAnOpenFileAndOthersMakeOneFile) {
  const TemporaryFolder folder;
  std::string large;
  while (large.size() < (std::size_t{20} << 20)) large += std::to_string(large.size());
  const fs::path old = folder.write("old", large);
  const auto mapped = foundation::MappedFile::open(old);
  ASSERT_TRUE(mapped);
  const Bytes bytes = mapped->bytes();
  // Nothing can be copied from a file that is open for writing alone.
  for (const int mode : {O_RDONLY, O_WRONLY}) {
    const foundation::FileDescriptor file(::open(old.c_str(), mode | O_CLOEXEC));
    ASSERT_TRUE(file);
    const toolchain::Pieces pieces = {bytesOf("head"), bytes.subspan(4), bytesOf(large).first(10),
                                      bytes.first(3)};
    toolchain::Replacement replacement;
    const auto made = replacement.prepare(folder / "new", toolchain::sizeOf(pieces));
    ASSERT_TRUE(made);
    ASSERT_TRUE(made->write({{0, pieces}}, {file.get(), bytes}));
    ASSERT_TRUE(replacement.commit({folder / "new"}));
    EXPECT_TRUE(contentsOf(folder / "new") ==
                "head" + large.substr(4) + large.substr(0, 10) + large.substr(0, 3));
  }
}

TEST(Replacement, ALinkThatIsPutIntoThePathIsNotFollowed) {
  const TemporaryFolder folder;
  const fs::path victim = folder.write("victim/inner/file", "theirs").parent_path().parent_path();
  const auto before = snapshot(victim);
  const fs::path tree = folder / "tree";
  fs::create_directory_symlink(victim, tree);
  const toolchain::Pieces content = {bytesOf("ours")};
  for (const char* const name : {"file", "inner/file", "made/file", "inner/made/file"}) {
    toolchain::Replacement replacement;
    EXPECT_FALSE(replacement.prepare(tree / name, content)) << name;
    EXPECT_FALSE(replacement.remove(tree / name)) << name;
  }
  EXPECT_EQ(problemOf(toolchain::Replacement().prepare(tree / "file", content)),
            tree.string() + " is not a folder");
  fs::remove(tree);
  folder.write("tree/inner/file", "old");
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
