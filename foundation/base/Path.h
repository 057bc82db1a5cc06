#pragma once

#include <string>
#include <string_view>

/// Path operations as the platform's strings define them. Names are bytes: nothing is decoded or
/// normalised.
namespace foundation {

/// A view of "/a/b" for "/a/b//", of "/" for "//".
std::string_view withoutTrailingSlashes(std::string_view path);
/// "b" for both "/a/b" and "/a/b/"; "/" for "/"; "" for "".
std::string lastPathComponent(std::string_view path);
/// "/a" for both "/a/b" and "/a/b/"; "/" for "/a" and "/"; "" for "a" and "".
std::string deletingLastPathComponent(std::string_view path);
/// Joined by exactly one slash; `component` alone when `path` is empty. A trailing slash is
/// dropped.
std::string appendingPathComponent(std::string_view path, std::string_view component);
/// Without the dot; "" when the last component has none, begins with its only dot, or ends with it.
std::string pathExtension(std::string_view path);
/// Drops the extension, its dot and a trailing slash; unchanged when there is no extension.
std::string deletingPathExtension(std::string_view path);
/// Begins with "/" or, as on the platform, "~".
bool isAbsolutePath(std::string_view path);
/// Names an entry of a folder, nothing above or below it.
bool isPlainName(std::string_view name);

}  // namespace foundation
