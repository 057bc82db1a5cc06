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

  /// "NSLocalizedDescription" of the user info, else the platform's sentence with domain and code.
  [[nodiscard]] std::string localizedDescription() const;
  /// `Error Domain=… Code=… UserInfo={…}` on one line; nested errors likewise.
  [[nodiscard]] std::string description() const;
};

/// Domains of the errors that `foundation/` makes itself.
inline constexpr std::string_view kPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view kCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view kURLErrorDomain = "NSURLErrorDomain";

/// A failed system call: domain NSPOSIXErrorDomain, code `errnoValue`, description
/// "`what`: <system's text>", and "NSFilePath" unless `path` is empty. `what` is, for example,
/// "cannot open /a/b".
Error posixError(int errnoValue, std::string what, std::string_view path = {});
/// The same for "cannot `action` `path`".
Error fileError(int errnoValue, std::string_view action, const std::string& path);

/// An error whose user info has only a description.
Error makeError(std::string_view domain, long code, std::string description);

/// Thrown where the platform raises an exception (a tool that cannot be launched, an index out of
/// range). Left to main() to catch; the text is one line.
class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace foundation
