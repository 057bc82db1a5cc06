#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

namespace foundation {

/// An error record: a domain, a code and a dictionary of details.
struct Error {
  std::string domain;
  long code = 0;
  Dictionary userInfo;

  /// The user info's "NSLocalizedDescription" when it has one, else a sentence made of domain and
  /// code, as the platform does.
  [[nodiscard]] std::string localizedDescription() const;
  /// `Error Domain=… Code=… UserInfo={…}`, always on one line; nested errors are shown the same
  /// way.
  [[nodiscard]] std::string description() const;
};

/// Domains of errors that this library itself makes.
inline constexpr std::string_view kPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view kCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view kURLErrorDomain = "NSURLErrorDomain";

/// A failed system call: domain NSPOSIXErrorDomain, code `errnoValue`, description
/// "`what`: <system's text>", and "NSFilePath" when `path` is not empty. `what` says where and
/// which value, for example "cannot open /a/b".
Error posixError(int errnoValue, std::string what, std::string_view path = {});

/// An error with only a description.
Error makeError(std::string_view domain, long code, std::string description);

/// What the platform raises as an exception (a tool that cannot be launched, an index out of
/// range). Nobody but the start routine is meant to catch it; its text is one line.
class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace foundation
