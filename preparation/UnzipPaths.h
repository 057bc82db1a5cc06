#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "preparation/ZipDirectory.h"

/// The archive argument that makes `unzip` open exactly the file at `path`.
///
/// If the argument contains a "*", "?" or "[" without a backslash before it, even in a folder's
/// name, `unzip` takes its last component for a pattern. Otherwise it opens the argument as is,
/// backslashes included, so a backslash cannot protect a character; brackets around it do.
std::string unzipPatternForPath(std::string_view path);

/// Where `unzip` puts what an archive holds: paths relative to the folder that it unpacks into,
/// without the empty, "." and ".." components, which it drops. A name that is not ASCII has several
/// possible paths, since `unzip` escapes characters that the user's locale lacks; all of them
/// count.
class UnzipPaths {
 public:
  explicit UnzipPaths(const archive::ZipDirectory& directory);

  /// False when `unzip` may put an entry elsewhere: it drops control characters and version numbers
  /// (";12") from names, converts old code pages and truncates long names.
  [[nodiscard]] bool areCertain() const { return areCertain_; }
  /// Whether an entry is at the path or below it.
  [[nodiscard]] bool reach(std::string_view path) const;
  /// Whether all that the archive has at the path or below it is a link, which replaces an older
  /// link.
  [[nodiscard]] bool replaceLink(const std::string& path) const;
  /// The items of "Payload" whose names end in ".app".
  [[nodiscard]] const std::set<std::string>& apps() const { return apps_; }

 private:
  enum class Kind : bool { other, link };
  void add(std::string_view name, Kind kind);
  [[nodiscard]] bool reachBelow(const std::string& path) const;

  /// What is at each; a link only if all entries of that path are.
  std::map<std::string, Kind, std::less<>> paths_;
  std::set<std::string> apps_;
  bool areCertain_ = true;
};
