#include "foundation/host/FileAttributes.h"

#include <cerrno>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace foundation {

namespace {

constexpr mode_t kPermissions = 07777;

bool isRefusal(int error) {
  return error == ENOTSUP || error == EPERM || error == EACCES || error == ENODATA;
}

/// Names of the attributes, each ended by a zero byte.
std::string attributeNames(int file) {
  const ssize_t size = ::flistxattr(file, nullptr, 0);
  if (size <= 0) return {};
  std::string names(static_cast<std::size_t>(size), '\0');
  const ssize_t got = ::flistxattr(file, names.data(), names.size());
  names.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return names;
}

bool copyAttribute(int source, int target, const char* name) {
  const ssize_t size = ::fgetxattr(source, name, nullptr, 0);
  if (size < 0) return isRefusal(errno);
  std::vector<char> value(static_cast<std::size_t>(size));
  const ssize_t got = ::fgetxattr(source, name, value.data(), value.size());
  if (got < 0) return isRefusal(errno);
  return ::fsetxattr(target, name, value.data(), static_cast<std::size_t>(got), 0) == 0 ||
         isRefusal(errno);
}

}  // namespace

Result<> copyAttributes(int source, int target, std::string_view path) {
  struct stat details {};
  const std::string what = "cannot keep the attributes of " + std::string(path);
  if (::fstat(source, &details) != 0) return posixError(errno, what, path);
  // First, since a change of owner clears the set-id bits. Only some users may give files away.
  if (::fchown(target, details.st_uid, details.st_gid) != 0 && !isRefusal(errno)) {
    return posixError(errno, what, path);
  }
  if (::fchmod(target, details.st_mode & kPermissions) != 0) return posixError(errno, what, path);
  const std::string names = attributeNames(source);
  for (std::size_t at = 0; at < names.size();
       at += std::char_traits<char>::length(&names[at]) + 1) {
    if (!copyAttribute(source, target, &names[at])) return posixError(errno, what, path);
  }
  return {};
}

}  // namespace foundation
