#include "foundation/base/Path.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(Path, TakesApart) {
  struct Case {
    const char *path, *last, *parent, *extension, *withoutExtension;
  };
  for (const Case& c : {
           Case{"/a//b//", "b", "/a", "", "/a//b//"},
           Case{"/a", "a", "/", "", "/a"},
           Case{"", "", "", "", ""},
           Case{"//", "/", "/", "", "//"},
           Case{"a/b.app/", "b.app", "a", "app", "a/b"},
           Case{"b.tar.gz", "b.tar.gz", "", "gz", "b.tar"},
           Case{".hidden", ".hidden", "", "", ".hidden"},
           Case{"a.", "a.", "", "", "a."},
           Case{"/x.y/z", "z", "/x.y", "", "/x.y/z"},
       }) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(lastPathComponent(c.path), c.last);
    EXPECT_EQ(deletingLastPathComponent(c.path), c.parent);
    EXPECT_EQ(pathExtension(c.path), c.extension);
    EXPECT_EQ(deletingPathExtension(c.path), c.withoutExtension);
  }
}

TEST(Path, PutsTogetherWithOneSlashAndKnowsPlainNames) {
  const char* const cases[][3] = {
      {"/a//", "//b/", "/a/b"}, {"", "/b", "/b"}, {"/", "b/c", "/b/c"}, {"/a/", "", "/a"}};
  for (const auto& [path, name, both] : cases) EXPECT_EQ(appendingPathComponent(path, name), both);
  for (const char* name : {"a", ".a", "...", " "}) EXPECT_TRUE(isPlainName(name)) << name;
  for (const std::string_view name :
       {std::string_view(), std::string_view("."), std::string_view(".."), std::string_view("a/b"),
        std::string_view("a\0b", 3)}) {
    EXPECT_FALSE(isPlainName(name)) << name;
  }
}

}  // namespace
}  // namespace foundation
