#include <climits>

#include "tests/support/Test.h"
#include "xcode/QVTEnvironment.h"

namespace {

using Paths = std::vector<std::string>;

/// A file system that has these directories, and expects each question once.
struct Directories {
  std::set<std::string> paths;
  std::set<std::string> asked = {};

  QVTDirectoryQuestion question() {
    return [this](const std::string& path) {
      EXPECT_TRUE(asked.insert(path).second) << path;
      EXPECT_LT(path.size(), std::size_t{PATH_MAX});
      return paths.contains(path);
    };
  }
};

Paths parse(const std::string& value, std::set<std::string> existing) {
  return QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
      keepForFuzzing("SearchPaths", value), "/w", Directories{std::move(existing)}.question());
}

TEST(QVTEnvironment, ParsesSearchPaths) {
  const std::tuple<const char*, std::string, std::set<std::string>, Paths> cases[] = {
      {"quoted and escaped", R"("/X Y" /X\ Y '/X Y')", {"/X Y"}, {"/X Y", "/X Y", "/X Y"}},
      {"relative", "a b/**", {"/w/a", "/w/b"}, {"a", "b/**"}},
      {"lost quotes, recursive", "/X Y/**", {"/X Y"}, {"/X Y/**"}},
      {"glued to all that was found", "/A /B C", {"/A", "/B", "/A /B C"}, {"/A /B C"}},
      {"glued to what was found", "/X Y Z", {"/X", "/X Y Z"}, {"/X Y Z"}},
      {"glued to the last that was found", "/A /B C", {"/A", "/B", "/B C"}, {"/A", "/B C"}},
      {"dropped", "/A gone /B", {"/A", "/B"}, {"/A", "/B"}},
      {"double space", "/A  /B C", {"/A", "/B C"}, {"/A", "/B C"}},
      {"an escape before the split", R"(/X\ Y gone)", {"/X Y"}, {"/X Y"}},
      {"a lone quote", "/A \"", {"/A"}, {"/A"}},
      {"an open quote in a path", "gone \"B", {"/w/\"B"}, {"\"B"}},
      {"quotes taken off", "\"/X Y\" gone", {"/X Y"}, {"/X Y"}},
      {"quotes that are part of the name", "\"a\" gone", {"/w/\"a\"", "/w/a"}, {"\"a\""}},
      {"open quote", "\"/A", {"/A"}, {}},
  };
  for (const auto& [name, value, existing, expected] : cases) {
    EXPECT_EQ(parse(value, existing), expected) << name;
  }
  const auto wellFormed =
      QVTEnvironment::parseWellFormedFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager;
  EXPECT_EQ(wellFormed("/A /B", "", Directories{{"/A"}}.question()), std::nullopt);
}

TEST(QVTEnvironment, TellsValidPaths) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"", "/w", false},     {"/A", "", true},    {"/A/**", "", true}, {"/A/**/", "", true},
      {"/A/x**", "", false}, {"/A/*", "", false}, {"**", "/A", true},  {"b", "/A/", true},
      {"b/", "/A", true},    {"b", "", false},    {"r", "", true},     {"~/A", "/w", false}};
  for (const auto& [path, folder, isValid] : cases) {
    Directories directories{{"/A", "/A/b", "r"}};
    EXPECT_EQ(QVTEnvironment::isValidFrameworkSearchPathWithWorkingDirectoryUsingFileManager(
                  path, folder, directories.question()),
              isValid)
        << path;
  }
}

TEST(QVTEnvironment, Unquotes) {
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"\"", std::nullopt},         {"\"\"", ""},
      {R"("a\ b\\")", R"(a\ b\\)"}, {R"("a)", R"("a)"},
      {R"(a\ b)", "a b"},           {R"(a\\ b)", "a b"},
      {R"(a\\\ b)", R"(a\ b)"},     {R"(a\\\\b\n\)", R"(a\\b\n\)"},
  };
  for (const auto& [path, expected] : cases) {
    EXPECT_EQ(QVTEnvironment::unquotedAndUnescapedPathForPath(path), expected) << path;
  }
}

TEST(QVTEnvironment, NeverAsksAboutPathsThatAreTooLong) {
  const std::string longName(1000, 'n');
  std::string value = "/A";
  for (int i = 0; i < 20; ++i) value += " " + longName;
  const std::string longPath = "/A " + longName + " " + longName;
  EXPECT_EQ(parse(value, {"/A", longPath}), Paths{longPath});
  const std::string slashes = "/A" + std::string(5000, '/') + "**";
  EXPECT_EQ(parse("gone " + slashes + " /B", {"/A", "/B"}), (Paths{slashes, "/B"}));
  const std::string longest = "/" + std::string(PATH_MAX - 2, 'x');
  EXPECT_EQ(parse(longest, {longest}), Paths{longest});
}

/// The paths take more memory than answers may.
TEST(QVTEnvironment, MendsAlthoughAnswersAreForgotten) {
  std::string value = "/A ";
  for (int i = 0; i < 300; ++i) value += "/p" + std::to_string(i) + ' ';
  std::set<std::size_t> asked;
  bool isForgotten = false;
  const auto isDirectory = [&](const std::string& path) {
    isForgotten |= !asked.insert(std::hash<std::string>()(path)).second;
    return path == "/A B" || path == "/A";
  };
  EXPECT_EQ(QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
                value + "/A B /A", "", isDirectory),
            (Paths{"/A", "/A B", "/A"}));
  EXPECT_TRUE(isForgotten);
}

}  // namespace
