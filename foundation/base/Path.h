#pragma once

#include <string>
#include <string_view>

/// Paths as the platform's strings treat them. Names are bytes: nothing here decodes or normalises.
namespace foundation {

/// "b" for both "/a/b" and "/a/b/"; "/" for "/"; "" for "".
std::string lastPathComponent(std::string_view path);
/// "/a" for both "/a/b" and "/a/b/"; "/" for "/a" and "/"; "" for "a" and "".
std::string deletingLastPathComponent(std::string_view path);
/// One slash between the two, whatever slashes they have at the seam; `component` alone when `path`
/// is empty. A trailing slash of the result is dropped.
std::string appendingPathComponent(std::string_view path, std::string_view component);
/// Without dot; "" when the last component has none, begins with its only dot, or ends with it.
std::string pathExtension(std::string_view path);
/// The path less its extension, its dot and a trailing slash; unchanged when there is no extension.
std::string deletingPathExtension(std::string_view path);
/// A path that begins with "/" or, as the platform sees it, with "~".
bool isAbsolutePath(std::string_view path);

}  // namespace foundation
