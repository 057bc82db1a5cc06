#include "foundation/base/Path.h"

namespace foundation {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(withoutTrailingSlashes(path.substr(0, slash == 0 ? 1 : slash)));
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return std::string(withoutTrailingSlashes(component));
  path = withoutTrailingSlashes(path);
  const std::size_t start = component.find_first_not_of('/');
  if (start == std::string_view::npos) return std::string(path);
  component = withoutTrailingSlashes(component.substr(start));
  std::string result(path);
  if (!path.ends_with('/')) result += '/';
  return result += component;
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return {};
  return name.substr(dot + 1);
}

std::string deletingPathExtension(std::string_view path) {
  const std::string extension = pathExtension(path);
  if (extension.empty()) return std::string(path);
  const std::string_view whole = withoutTrailingSlashes(path);
  return std::string(whole.substr(0, whole.size() - extension.size() - 1));
}

bool isAbsolutePath(std::string_view path) {
  return path.starts_with('/') || path.starts_with('~');
}

bool isPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == name.npos;
}

}  // namespace foundation
