#include "xcode/QVTEnvironment.h"

#include <algorithm>
#include <climits>
#include <map>
#include <string_view>

#include <sys/stat.h>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"

namespace {

using Paths = std::vector<std::string>;

constexpr std::string_view kRecursiveMarker = "**";

/// The longest path that the system accepts; its limit counts the terminating zero.
constexpr std::size_t kLongestPath = PATH_MAX - 1;

/// A run of backslashes is halved (rounded up), then loses one to a space after it.
std::string unescaped(std::string_view text) {
  std::string plain;
  for (;;) {
    const std::size_t start = std::min(text.find('\\'), text.size());
    const std::size_t end = std::min(text.find_first_not_of('\\', start), text.size());
    plain += text.substr(0, start);
    if (start == text.size()) return plain;
    plain.append((end - start + 1) / 2 - (text.substr(end).starts_with(' ') ? 1 : 0), '\\');
    text.remove_prefix(end);
  }
}

/// A candidate whose unescaped text is longer than this is longer than any path in quotes, too, and
/// stays so whatever is appended after a space.
constexpr std::size_t kLongestCandidate = kLongestPath + std::string_view("\"\"").size();

/// Most candidates differ in length, which makes comparing long ones cheap.
struct ShorterFirst {
  bool operator()(const std::string& a, const std::string& b) const {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  }
};

/// The questions of one parse. Answers are remembered until they take too much memory.
class SearchPathQuestions {
 public:
  SearchPathQuestions(std::string_view workingDirectory, const QVTDirectoryQuestion& isDirectory)
      : workingDirectory_(workingDirectory), isDirectory_(isDirectory) {}

  /// Takes the path as written.
  bool isValid(std::string path) {
    if (path.empty()) return false;
    if (!foundation::isAbsolutePath(path)) {
      path = foundation::appendingPathComponent(workingDirectory_, path);
    }
    const bool mayBeRecursive = path.ends_with('*') || path.ends_with('/');  // saves a search
    if (mayBeRecursive && foundation::lastPathComponent(path) == kRecursiveMarker) {
      path = foundation::deletingLastPathComponent(path);
    }
    return path.size() <= kLongestPath && ask(std::move(path));
  }

  bool isValidUnquoted(std::string_view path) {
    auto unquoted = QVTEnvironment::unquotedAndUnescapedPathForPath(path);
    return unquoted && isValid(*std::move(unquoted));
  }

 private:
  bool ask(std::string place) {
    const auto known = answers_.find(place);
    if (known != answers_.end()) return known->second;
    const bool answer = isDirectory_(place);
    constexpr std::size_t kMostRemembered = std::size_t{16} << 20;
    constexpr std::size_t kPerAnswer = 100;
    remembered_ += place.size() + kPerAnswer;
    if (remembered_ > kMostRemembered) {
      answers_.clear();
      remembered_ = 0;
    }
    answers_.emplace(std::move(place), answer);
    return answer;
  }

  std::string_view workingDirectory_;
  const QVTDirectoryQuestion& isDirectory_;
  std::map<std::string, bool, ShorterFirst> answers_;
  std::size_t remembered_ = 0;
};

std::optional<Paths> wellFormed(std::string_view value, SearchPathQuestions& questions) {
  auto tokens = QVTTask::parsedArgumentsFromString(value);
  if (!tokens) return std::nullopt;
  const bool areValid = std::ranges::all_of(
      *tokens, [&](const std::string& token) { return questions.isValid(token); });
  return areValid ? std::move(tokens) : std::nullopt;
}

/// Rebuilds paths that were split at their spaces.
class Mender {
 public:
  Mender(std::string_view value, SearchPathQuestions& questions)
      : pieces_(foundation::split(value, ' ')), questions_(questions) {}

  Paths mend() {
    for (std::size_t piece = 0; piece < pieces_.size(); ++piece) {
      if (const auto last = placeFrom(piece)) piece = *last;
    }
    for (std::string& path : found_) cleanUp(path);
    return std::move(found_);
  }

 private:
  /// Finds a path that begins with the piece, or with the last paths found followed by the piece.
  /// Returns the index of its last piece.
  std::optional<std::size_t> placeFrom(std::size_t piece) {
    std::string before;
    for (std::size_t kept = found_.size();; --kept) {
      std::string candidate = before;
      if (unescaped(candidate).size() > kLongestCandidate) return std::nullopt;
      if (const auto last = extend(candidate, piece)) {
        found_.resize(kept);
        found_.push_back(std::move(candidate));
        return last;
      }
      if (kept == 0) return std::nullopt;
      before.insert(0, found_[kept - 1] + " ");
    }
  }

  /// Adds pieces to the candidate until it is a path. Unescapes each piece once: no run of
  /// backslashes goes on beyond a space.
  std::optional<std::size_t> extend(std::string& candidate, std::size_t piece) {
    std::string plain = unescaped(candidate);
    for (std::size_t last = piece; last < pieces_.size() && plain.size() <= kLongestCandidate;
         ++last) {
      if (last > piece) {
        if (candidate.ends_with('\\')) plain.pop_back();
        candidate += ' ';
        plain += ' ';
      }
      candidate += pieces_[last];
      plain += unescaped(pieces_[last]);
      if (candidate.starts_with('"') ? questions_.isValidUnquoted(candidate)
                                     : questions_.isValid(plain)) {
        return last;
      }
    }
    return std::nullopt;
  }

  void cleanUp(std::string& path) {
    if (questions_.isValid(path) || !questions_.isValidUnquoted(path)) return;
    path = QVTEnvironment::unquotedAndUnescapedPathForPath(path).value_or(path);
  }

  Paths pieces_;
  SearchPathQuestions& questions_;
  Paths found_;
};

}  // namespace

bool QVTIsDirectoryOnHost(const std::string& path) {
  struct stat status {};
  return path.find('\0') == std::string::npos && ::stat(path.c_str(), &status) == 0 &&
         S_ISDIR(status.st_mode);
}

std::vector<std::string>
QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
    std::string_view value, std::string_view workingDirectory,
    const QVTDirectoryQuestion& isDirectory) {
  SearchPathQuestions questions(workingDirectory, isDirectory);
  if (auto paths = wellFormed(value, questions)) return std::move(*paths);
  return Mender(value, questions).mend();
}

std::vector<std::string> QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectory(
    std::string_view value, std::string_view workingDirectory) {
  return parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(value, workingDirectory,
                                                                        QVTIsDirectoryOnHost);
}

std::vector<std::string> QVTEnvironment::parseFrameworkSearchPathsFromRootInString(
    std::string_view value) {
  return parseFrameworkSearchPathsFromStringWorkingDirectory(value, "");
}

std::optional<std::vector<std::string>>
QVTEnvironment::parseWellFormedFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
    std::string_view value, std::string_view workingDirectory,
    const QVTDirectoryQuestion& isDirectory) {
  SearchPathQuestions questions(workingDirectory, isDirectory);
  return wellFormed(value, questions);
}

std::vector<std::string>
QVTEnvironment::parseMangledFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
    std::string_view value, std::string_view workingDirectory,
    const QVTDirectoryQuestion& isDirectory) {
  SearchPathQuestions questions(workingDirectory, isDirectory);
  return Mender(value, questions).mend();
}

bool QVTEnvironment::isValidFrameworkSearchPathWithWorkingDirectoryUsingFileManager(
    std::string_view path, std::string_view workingDirectory,
    const QVTDirectoryQuestion& isDirectory) {
  return SearchPathQuestions(workingDirectory, isDirectory).isValid(std::string(path));
}

std::optional<std::string> QVTEnvironment::unquotedAndUnescapedPathForPath(std::string_view path) {
  if (path.starts_with('"') && path.ends_with('"')) {
    if (path.size() < 2) return std::nullopt;
    return std::string(path.substr(1, path.size() - 2));
  }
  return unescaped(path);
}
