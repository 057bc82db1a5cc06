#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xcode/QVTEnvironment.h"

/// A number that two different texts have in common only by an accident of about 1 in 2^60, and
/// that grows with the text at no cost for what is there already.
class TextFingerprint {
 public:
  void append(char c) {
    const auto code = static_cast<unsigned char>(c);
    first_ = (first_ ^ code) * 0x00000100000001b3U;
    second_ = (second_ + code + 1) * 0x9e3779b97f4a7c15U;
    second_ ^= second_ >> 29;
  }
  void append(std::string_view text) {
    for (const char c : text) append(c);
  }
  [[nodiscard]] std::uint64_t value() const;

 private:
  std::uint64_t first_ = 0xcbf29ce484222325U;
  std::uint64_t second_ = 0x2545f4914f6cdd1dU;
};

/// A search path that grows piece by piece, with what it says once it is unescaped.
class SearchPathCandidate {
 public:
  explicit SearchPathCandidate(std::string_view workingDirectory)
      : workingDirectory_(workingDirectory) {}

  void append(std::string_view text);

  /// As written in the value.
  [[nodiscard]] const std::string& raw() const { return raw_; }
  /// True when this is too long for any path, and so is all that it could grow to by a space and
  /// more pieces.
  [[nodiscard]] bool isTooLong() const;

  /// The path to ask about where it can be told from what was appended: it is neither quoted nor
  /// does it end in a way that changes the rest. Null else.
  [[nodiscard]] const std::string* plainPath() const;
  [[nodiscard]] std::uint64_t plainFingerprint() const { return fingerprint_.value(); }

 private:
  void start(char first);
  void appendPlain(char c);

  std::string_view workingDirectory_;
  std::string raw_;
  /// The unescaped text, below the working directory when it is relative.
  std::string path_;
  TextFingerprint fingerprint_;
  /// The fingerprint before the last character of a run of backslashes.
  TextFingerprint beforeBackslash_;
  std::size_t backslashes_ = 0;
};

/// The questions of one parse; each is asked once, until there are too many answers to remember.
class SearchPathQuestions {
 public:
  SearchPathQuestions(std::string_view workingDirectory, const QVTDirectoryQuestion& isDirectory)
      : workingDirectory_(workingDirectory), isDirectory_(isDirectory) {}

  /// Of a path as it is written.
  bool isValid(std::string_view path);
  /// Of a candidate once it is unquoted and unescaped.
  bool isValidUnquoted(const SearchPathCandidate& candidate);
  bool isValidUnquoted(std::string_view path);

  [[nodiscard]] std::string_view workingDirectory() const { return workingDirectory_; }

 private:
  bool ask(const std::string& path, std::uint64_t fingerprint);
  std::uint64_t& slotFor(std::uint64_t fingerprint);
  /// Twice the room, or, at the most that is kept, an empty start.
  void makeRoom();

  std::string_view workingDirectory_;
  const QVTDirectoryQuestion& isDirectory_;
  /// Fingerprints with the answer in their lowest bit, at the place that they name or behind it; 0
  /// is an empty place.
  std::vector<std::uint64_t> answers_ = std::vector<std::uint64_t>(64);
  std::size_t count_ = 0;
};
