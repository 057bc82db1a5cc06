#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Whether there is a directory at a path. Never called with a path that is longer than the system
/// allows.
using QVTDirectoryQuestion = std::function<bool(const std::string& path)>;

/// Asks the host; follows links.
bool QVTIsDirectoryOnHost(const std::string& path);

/// Turns the value of a framework-search-paths build setting into a list of directories.
///
/// A well-formed value quotes or escapes paths with spaces. One that has lost its quoting is
/// rebuilt from its pieces, and the file system decides what is a path. One parse asks about a path
/// once (again only after 16 MiB of other answers), so the file system should not change meanwhile.
/// The time is proportional to the value's length, with up to thousands of questions per piece.
/// Nothing is kept between calls; as thread-safe as `isDirectory`.
class QVTEnvironment {
 public:
  /// The well-formed reading where there is one, else the mangled one.
  static std::vector<std::string> parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
      std::string_view value, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);
  static std::vector<std::string> parseFrameworkSearchPathsFromStringWorkingDirectory(
      std::string_view value, std::string_view workingDirectory);
  /// Relative paths are taken from the process's current directory.
  static std::vector<std::string> parseFrameworkSearchPathsFromRootInString(std::string_view value);

  /// The tokens of the value; absent when one is not a valid path or a quote is not closed.
  static std::optional<std::vector<std::string>>
  parseWellFormedFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
      std::string_view value, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);

  /// Joins neighbouring pieces until they name directories; pieces that name none in any way are
  /// dropped. The number of questions can grow with the cube of the number of pieces.
  static std::vector<std::string>
  parseMangledFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
      std::string_view value, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);

  /// True when there is a directory at the path as it is written, or at its parent when the last
  /// component is "**". A relative path is taken from the working directory.
  static bool isValidFrameworkSearchPathWithWorkingDirectoryUsingFileManager(
      std::string_view path, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);

  /// The text between two double quotes as is. Without such quotes, the text with `\\` replaced by
  /// `\`, then `\ ` by a space. Absent for a single quote character.
  static std::optional<std::string> unquotedAndUnescapedPathForPath(std::string_view path);
};
