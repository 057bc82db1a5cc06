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

}  // namespace
}  // namespace foundation
