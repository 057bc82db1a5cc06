#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "preparation/ZipDirectory.h"

/// Where `unzip` puts what an archive holds: paths relative to the folder that it unpacks into,
/// without the empty, "." and ".." components that it drops. A name that is not ASCII has several
/// possible paths, since `unzip` may escape what the user's locale has no character for; all of
/// them count.
class UnzipPaths {
 public:
  explicit UnzipPaths(const archive::ZipDirectory& directory);

  /// False when `unzip` may put an entry elsewhere: it drops control characters and version numbers
  /// (";12") from names, converts old code pages, and truncates what is too long.
  [[nodiscard]] bool areCertain() const { return areCertain_; }
  /// Whether an entry is at the path or below it.
  [[nodiscard]] bool reach(std::string_view path) const;
  /// The items of "Payload" whose names end in ".app".
  [[nodiscard]] const std::set<std::string>& apps() const { return apps_; }

 private:
  void add(std::string_view name);

  /// Sorted.
  std::vector<std::string> paths_;
  std::set<std::string> apps_;
  bool areCertain_ = true;
};
