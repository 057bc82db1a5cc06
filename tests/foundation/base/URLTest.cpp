#include "foundation/base/URL.h"
#include "tests/support/Test.h"

namespace foundation {
namespace {

TEST(URL, TakesApart) {
  struct Case {
    const char *text, *scheme, *host;
    int port;
    const char* path;
  };
  for (const Case& c : {
           Case{"https://API.example", "https", "api.example", 443, ""},
           Case{"HTTP://u:p@h:8080/a%20b/?q#f", "http", "h", 8080, "/a b"},
           Case{"http://[::1]:81/", "http", "::1", 81, "/"},
           Case{"http://h:99999/", "http", "h", 0, "/"},
           Case{"http://h:/", "http", "h", 80, "/"},
           Case{"file:///a/b%25/", "file", "", 0, "/a/b%"},
           Case{"x/y:z%C3%a4+", "", "", 0, "x/y:z\u00e4+"},
           Case{"http://[broken", "http", "[broken", 80, ""},
       }) {
    SCOPED_TRACE(c.text);
    const auto url = URL::withString(c.text);
    ASSERT_TRUE(url);
    EXPECT_EQ(url->scheme(), c.scheme);
    EXPECT_EQ(url->host(), c.host);
    EXPECT_EQ(url->port(), c.port);
    EXPECT_EQ(url->path(), c.path);
  }
  for (const char* text :
       {"http://h/a b", "\u00e4", "\"", "\\", "^", "a%2", "a%zz", "a\nb", "\x7f"}) {
    EXPECT_FALSE(URL::withString(text)) << text;
  }
}

TEST(URL, ResolvesAsTheStandardsExamplesDo) {
  const auto base = URL::withString("http://a/b/c/d;p?q");
  const std::pair<const char*, const char*> cases[] = {{"g:h", "g:h"},
                                                       {"./g/", "http://a/b/c/g/"},
                                                       {"/g", "http://a/g"},
                                                       {"//g", "http://g"},
                                                       {"?y", "http://a/b/c/d;p?y"},
                                                       {"g?y#s", "http://a/b/c/g?y#s"},
                                                       {"#s", "http://a/b/c/d;p?q#s"},
                                                       {"", "http://a/b/c/d;p?q"},
                                                       {"..", "http://a/b/"},
                                                       {"../../../../g", "http://a/g"},
                                                       {"g/./h/../i", "http://a/b/c/g/i"},
                                                       {"g..", "http://a/b/c/g.."}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(URL::withStringRelativeToURL(text, *base)->absoluteString(), expected) << text;
  }
  EXPECT_FALSE(URL::withStringRelativeToURL("a b", *base));
}

TEST(URL, FilePathsSurvive) {
  for (const std::string path : {"/a b/\u00e4?#%[;].app", "/x\xff", "a b/c"}) {
    EXPECT_EQ(URL::fileURLWithPath(path).path(), fs::absolute(path)) << path;
  }
}

TEST(URL, EscapesAndKnowsPathComponentsThatReachAnotherPlace) {
  EXPECT_EQ(percentEscaped("a-._~/?&=+!'()*,;:@$%41"), "a-._~/?&=+!'()*,;:@$%2541");
  EXPECT_EQ(percentEscaped(" \"#[]\\^`{|}<>\u00e4\n"),
            "%20%22%23%5B%5D%5C%5E%60%7B%7C%7D%3C%3E%C3%A4%0A");
  EXPECT_EQ(percentEscapedKeepingPercent("%25 &=", "&="), "%25%20%26%3D");
  EXPECT_EQ(percentEscapedPathComponent("a-._~b%/?#[];\u00e4 "),
            "a-._~b%25%2F%3F%23%5B%5D%3B%C3%A4%20");
  for (const char* const good : {"", "com.example.app-1", "gr\u00fcn", "...", "a;b=c&d@e:f"}) {
    EXPECT_TRUE(isPlainPathComponent(good)) << good;
  }
  for (const char* const bad : {".", "..", "a/b", "a?", "#", "\\", "%", " ", "a\u00a0b", "a\n",
                                "\x7f", "\u0085", "\u2028", "\xff"}) {
    EXPECT_FALSE(isPlainPathComponent(bad)) << bad;
  }
}

}  // namespace
}  // namespace foundation
