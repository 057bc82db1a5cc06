#include <climits>
#include <random>

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
      {"dropped", "/A gone /B", {"/A", "/B"}, {"/A", "/B"}},
      {"quotes taken off", "\"/X Y\" gone", {"/X Y"}, {"/X Y"}},
      {"quotes that are part of the name", "\"a\" gone", {"/w/\"a\"", "/w/a"}, {"\"a\""}},
      {"open quote", "\"/A", {"/A"}, {}},
  };
  for (const auto& [name, value, existing, expected] : cases) {
    EXPECT_EQ(parse(value, existing), expected) << name;
  }
}

TEST(QVTEnvironment, WellFormedParsingNeedsEveryToken) {
  const auto parsed =
      QVTEnvironment::parseWellFormedFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager;
  const auto isA = [](const std::string& path) { return path == "/A"; };
  EXPECT_EQ(parsed("/A /A", "", isA), (Paths{"/A", "/A"}));
  EXPECT_EQ(parsed("/A /B", "", isA), std::nullopt);
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

/// The mending of a mangled value at its plainest: every candidate is built anew and asked about.
Paths mendedPlainly(const std::string& value, const std::string& folder,
                    const QVTDirectoryQuestion& isDirectory) {
  const auto isValid = [&](const std::optional<std::string>& path) {
    return path && QVTEnvironment::isValidFrameworkSearchPathWithWorkingDirectoryUsingFileManager(
                       *path, folder, isDirectory);
  };
  const auto unquoted = QVTEnvironment::unquotedAndUnescapedPathForPath;
  const Paths pieces = foundation::split(value, ' ');
  Paths result;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    std::string current = pieces[i];
    Paths trial = result;
    bool isFound = false;
    while (!isFound) {
      std::string candidate = current;
      for (std::size_t j = i; j < pieces.size() && !isFound; ++j) {
        if (j > i) candidate += " " + pieces[j];
        if (!isValid(unquoted(candidate))) continue;
        trial.push_back(candidate);
        i = j;
        isFound = true;
      }
      if (isFound || trial.empty()) break;
      current = trial.back() + " " + current;
      trial.pop_back();
    }
    if (isFound) result = trial;
  }
  for (std::string& path : result) {
    if (!isValid(path) && isValid(unquoted(path))) path = *unquoted(path);
  }
  return result;
}

TEST(QVTEnvironment, MendsAsThePlainWayDoesWithoutAskingTwice) {
  std::mt19937 random(20150301);
  const auto pick = [&random](const Paths& from) {
    return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(random)];
  };
  const Paths words{"/A", "/B",   "a",    "b", "",   "/A/**", "**", "\"",   "\"/A",  "B\"",
                    "\\", "/A\\", "\\\\", "/", "a/", "/w/a",  "~",  "//**", "\"a\"", "x\\\\\\"};
  for (int round = 0; round < 4000; ++round) {
    const auto text = [&](int longest) {
      std::string out = pick(words);
      for (int i = std::uniform_int_distribution<int>(0, longest)(random); i > 0; --i) {
        out += " " + pick(words);
      }
      return out;
    };
    std::set<std::string> paths;
    for (int i = 0; i < 5; ++i) {
      const std::string path =
          QVTEnvironment::unquotedAndUnescapedPathForPath(text(2)).value_or("/A");
      paths.insert(foundation::isAbsolutePath(path) ? path : "/w/" + path);
    }
    const std::string value = text(7);
    std::set<std::string> plainlyAsked;
    const auto plain = mendedPlainly(value, "/w", [&](const std::string& path) {
      plainlyAsked.insert(path);
      return paths.contains(path);
    });
    Directories directories{paths};
    const auto mended =
        QVTEnvironment::parseMangledFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
            value, "/w", directories.question());
    ASSERT_EQ(mended, plain) << value;
    ASSERT_EQ(directories.asked, plainlyAsked) << value;
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
  std::string value;
  for (int i = 0; i < 300; ++i) value += "/p" + std::to_string(i) + ' ';
  std::size_t asked = 0;
  const auto isDirectory = [&](const std::string& path) {
    asked += path.size();
    return path == "/A B" || path == "/A";
  };
  EXPECT_EQ(QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
                value + "/A B /A", "", isDirectory),
            (Paths{"/A B", "/A"}));
  EXPECT_GT(asked, std::size_t{20} << 20);
}

}  // namespace
