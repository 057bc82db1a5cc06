#include "xcode/QVTEnvironment.h"

#include <algorithm>

#include <sys/stat.h>

#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Text.h"
#include "xcode/SearchPathCandidate.h"

namespace {

using Paths = std::vector<std::string>;

std::optional<Paths> wellFormed(std::string_view value, SearchPathQuestions& questions) {
  auto tokens = QVTTask::parsedArgumentsFromString(value);
  if (!tokens) return std::nullopt;
  const bool areValid = std::ranges::all_of(
      *tokens, [&](const std::string& token) { return questions.isValid(token); });
  return areValid ? std::move(tokens) : std::nullopt;
}

/// Puts a value together again whose paths have fallen apart at their spaces.
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
  /// Finds a path that begins at the piece, or one that begins at the paths found last and goes on
  /// with the piece. Returns the last piece of it.
  std::optional<std::size_t> placeFrom(std::size_t piece) {
    std::string before;
    for (std::size_t kept = found_.size();; --kept) {
      SearchPathCandidate candidate(questions_.workingDirectory());
      candidate.append(before);
      if (candidate.isTooLong()) return std::nullopt;
      if (const auto last = extend(candidate, piece)) {
        found_.resize(kept);
        found_.push_back(candidate.raw());
        return last;
      }
      if (kept == 0) return std::nullopt;
      before.insert(0, found_[kept - 1] + " ");
    }
  }

  /// Adds pieces to the candidate until it is a path.
  std::optional<std::size_t> extend(SearchPathCandidate& candidate, std::size_t piece) {
    for (std::size_t last = piece; last < pieces_.size() && !candidate.isTooLong(); ++last) {
      if (last > piece) candidate.append(" ");
      candidate.append(pieces_[last]);
      if (questions_.isValidUnquoted(candidate)) return last;
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

std::string replacingAll(std::string_view text, std::string_view from, char to) {
  std::string out;
  for (std::size_t place = text.find(from); place != std::string_view::npos;
       place = text.find(from)) {
    out += text.substr(0, place);
    out += to;
    text.remove_prefix(place + from.size());
  }
  return out += text;
}

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
  return SearchPathQuestions(workingDirectory, isDirectory).isValid(path);
}

std::optional<std::string> QVTEnvironment::unquotedAndUnescapedPathForPath(std::string_view path) {
  if (path.starts_with('"') && path.ends_with('"')) {
    if (path.size() < 2) return std::nullopt;
    return std::string(path.substr(1, path.size() - 2));
  }
  return replacingAll(replacingAll(path, "\\\\", '\\'), "\\ ", ' ');
}
