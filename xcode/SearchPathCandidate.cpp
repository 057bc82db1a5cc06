#include "xcode/SearchPathCandidate.h"

#include <algorithm>
#include <bit>
#include <climits>

#include "foundation/base/Path.h"

namespace {

constexpr std::string_view kRecursiveMarker = "**";

/// The longest path that the system takes; its limit counts the zero behind it.
constexpr std::size_t kLongestPath = PATH_MAX - 1;

/// What may be remembered in 16 MB; a value without quotes can ask thousands of questions per
/// piece.
constexpr std::size_t kMostPlaces = std::size_t{1} << 21;

/// Where to ask about a path; absent for an empty one.
std::optional<std::string> placeOf(std::string_view path, std::string_view workingDirectory) {
  if (path.empty()) return std::nullopt;
  std::string place = foundation::isAbsolutePath(path)
                          ? std::string(path)
                          : foundation::appendingPathComponent(workingDirectory, path);
  if (foundation::lastPathComponent(place) != kRecursiveMarker) return place;
  return foundation::deletingLastPathComponent(place);
}

}  // namespace

std::uint64_t TextFingerprint::value() const {
  std::uint64_t mixed = first_ ^ std::rotl(second_, 32);
  mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9U;
  mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111ebU;
  return mixed ^ mixed >> 31;
}

void SearchPathCandidate::start(char first) {
  if (first == '/' || first == '~' || workingDirectory_.empty()) return;
  path_ = foundation::appendingPathComponent(workingDirectory_, "x");
  path_.pop_back();
  fingerprint_.append(path_);
}

void SearchPathCandidate::appendPlain(char c) {
  path_ += c;
  fingerprint_.append(c);
}

/// Half of a run of backslashes stays, and none of it that a space turns into a part of itself.
void SearchPathCandidate::append(std::string_view text) {
  if (raw_.empty() && !text.empty()) start(text.front());
  raw_ += text;
  for (const char c : text) {
    if (c == '\\') {
      if (backslashes_++ % 2 != 0) continue;
      beforeBackslash_ = fingerprint_;
      appendPlain(c);
      continue;
    }
    if (c == ' ' && backslashes_ > 0) {
      path_.pop_back();
      fingerprint_ = beforeBackslash_;
    }
    backslashes_ = 0;
    appendPlain(c);
  }
}

bool SearchPathCandidate::isTooLong() const {
  // Two quotes around it would not be part of the path.
  return path_.size() > workingDirectory_.size() + 1 + kLongestPath + 2;
}

const std::string* SearchPathCandidate::plainPath() const {
  if (raw_.empty() || raw_.front() == '"' || path_.ends_with('*') || path_.ends_with('/')) {
    return nullptr;
  }
  return &path_;
}

bool SearchPathQuestions::isValid(std::string_view path) {
  const auto place = placeOf(path, workingDirectory_);
  if (!place) return false;
  TextFingerprint fingerprint;
  fingerprint.append(*place);
  return ask(*place, fingerprint.value());
}

bool SearchPathQuestions::isValidUnquoted(const SearchPathCandidate& candidate) {
  const std::string* path = candidate.plainPath();
  return path ? ask(*path, candidate.plainFingerprint()) : isValidUnquoted(candidate.raw());
}

bool SearchPathQuestions::isValidUnquoted(std::string_view path) {
  const auto unquoted = QVTEnvironment::unquotedAndUnescapedPathForPath(path);
  return unquoted && isValid(*unquoted);
}

bool SearchPathQuestions::ask(const std::string& path, std::uint64_t fingerprint) {
  if (path.size() > kLongestPath) return false;
  fingerprint = (fingerprint | 2) & ~std::uint64_t{1};
  std::uint64_t& slot = slotFor(fingerprint);
  if (slot != 0) return (slot & 1) != 0;
  const bool answer = isDirectory_(path);
  slot = fingerprint | (answer ? 1 : 0);
  if (++count_ > answers_.size() / 4 * 3) makeRoom();
  return answer;
}

/// The place of this fingerprint's answer, or the empty one where it belongs.
std::uint64_t& SearchPathQuestions::slotFor(std::uint64_t fingerprint) {
  const std::size_t mask = answers_.size() - 1;
  std::size_t place = static_cast<std::size_t>(fingerprint >> 2) & mask;
  while (answers_[place] != 0 && (answers_[place] & ~std::uint64_t{1}) != fingerprint) {
    place = (place + 1) & mask;
  }
  return answers_[place];
}

void SearchPathQuestions::makeRoom() {
  if (answers_.size() == kMostPlaces) {
    std::fill(answers_.begin(), answers_.end(), 0);
    count_ = 0;
    return;
  }
  std::vector<std::uint64_t> before(answers_.size() * 2);
  before.swap(answers_);
  for (const std::uint64_t answer : before) {
    if (answer != 0) slotFor(answer & ~std::uint64_t{1}) = answer;
  }
}
