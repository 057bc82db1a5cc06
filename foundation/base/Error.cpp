#include "foundation/base/Error.h"

#include <system_error>

#include "foundation/base/Format.h"

namespace foundation {

namespace {

constexpr std::string_view kDescriptionKey = "NSLocalizedDescription";
constexpr std::string_view kFilePathKey = "NSFilePath";

}  // namespace

std::string Error::localizedDescription() const {
  if (const auto text = stringAt(userInfo, kDescriptionKey)) return *text;
  return format("The operation couldn’t be completed. (%@ error %ld.)", domain, code);
}

std::string Error::description() const {
  std::string details;
  for (const auto& [key, value] : userInfo) {
    if (!details.empty()) details += ", ";
    details += singleLineDescription(Value(key)) + "=" + singleLineDescription(value);
  }
  return format("Error Domain=%@ Code=%ld UserInfo={%@}", singleLineDescription(Value(domain)),
                code, details);
}

Error posixError(int errnoValue, std::string what, std::string_view path) {
  what += ": " + std::generic_category().message(errnoValue);
  Error error = makeError(kPOSIXErrorDomain, errnoValue, std::move(what));
  if (!path.empty()) error.userInfo.emplace(kFilePathKey, path);
  return error;
}

Error fileError(int errnoValue, std::string_view action, const std::string& path) {
  return posixError(errnoValue, "cannot " + std::string(action) + ' ' + path, path);
}

Error makeError(std::string_view domain, long code, std::string description) {
  Error error{std::string(domain), code, {}};
  error.userInfo.emplace(kDescriptionKey, std::move(description));
  return error;
}

}  // namespace foundation
