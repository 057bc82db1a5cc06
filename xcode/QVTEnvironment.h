#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The one question that is asked of a file system: whether there is a directory at a path. It is
/// never asked about a path that is longer than the system allows.
using QVTDirectoryQuestion = std::function<bool(const std::string& path)>;

/// Asks the host; follows links.
bool QVTIsDirectoryOnHost(const std::string& path);

/// Turns the value of a framework-search-paths build setting into a list of directories.
///
/// A well-formed value quotes or escapes what holds spaces. One that has lost its quoting is put
/// together again from its pieces, with the file system as the judge of what is a path. Within one
/// parse a path is asked about once (again only after a million others), so the file system should
/// not change meanwhile. The time grows with the value's length, up to thousands of questions per
/// piece. Nothing is kept between calls; safe from any thread as far as `isDirectory` is.
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

  /// The tokens of the value; absent when one is no valid path, or a quote does not end.
  static std::optional<std::vector<std::string>>
  parseWellFormedFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
      std::string_view value, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);

  /// Joins neighbouring pieces until they name directories; pieces that name none in any way are
  /// dropped. The number of questions can grow with the cube of the number of pieces, the memory
  /// with some twenty bytes for each.
  static std::vector<std::string>
  parseMangledFrameworkSearchPathsFromStringWorkingDirectoryUsingFileManager(
      std::string_view value, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);

  /// True when there is a directory at the path as it is written, or at its parent when the last
  /// component is "**". A relative path is taken from the working directory.
  static bool isValidFrameworkSearchPathWithWorkingDirectoryUsingFileManager(
      std::string_view path, std::string_view workingDirectory,
      const QVTDirectoryQuestion& isDirectory);

  /// The text between two double quotes as it stands; without such quotes, the text with its
  /// escaped backslashes, then its escaped spaces, made plain. Absent for one lone quote.
  static std::optional<std::string> unquotedAndUnescapedPathForPath(std::string_view path);
};
