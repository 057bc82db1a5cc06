#include "package/ProvisioningProfile.h"

#include <cerrno>
#include <optional>
#include <string_view>

#include "foundation/format/PropertyList.h"

namespace package {

using foundation::Array;
using foundation::Dictionary;
using foundation::Result;
using foundation::Value;

namespace {

foundation::Error unreadable(const char* why) {
  return foundation::makeError(foundation::kPOSIXErrorDomain, EINVAL, why);
}

/// From the last "<?xml" to the first "</plist>" after it. The search for that covers as many bytes
/// as precede the last "</plist>" of the file, which bounds how much of the signature is read.
std::optional<std::string_view> propertyListIn(std::string_view file) {
  constexpr std::string_view kStart = "<?xml";
  constexpr std::string_view kEnd = "</plist>";
  const auto start = file.rfind(kStart);
  const auto end = file.rfind(kEnd);
  if (start == file.npos || end == file.npos || end > file.size() - start) return std::nullopt;
  const auto slice = file.substr(start, end);
  const auto endInSlice = slice.find(kEnd);
  if (endInSlice == slice.npos) return std::nullopt;
  return slice.substr(0, endInSlice + kEnd.size());
}

/// Absent for a pattern that the identifier does not match, and for a wildcard alone.
std::optional<Value> exactText(const std::string& pattern, const std::string& identifier) {
  if (pattern == "*") return std::nullopt;
  if (!pattern.ends_with(".*")) return Value(pattern);
  const auto prefix = pattern.find('.') + 1;
  const auto start = std::string_view(pattern).substr(prefix, pattern.size() - prefix - 1);
  if (!identifier.starts_with(start)) return std::nullopt;
  return Value(pattern.substr(0, prefix) + identifier);
}

std::optional<Value> exact(const Value& value, const std::string& identifier) {
  if (const std::string* text = value.string()) return exactText(*text, identifier);
  const Array* array = value.array();
  if (!array) return value;
  Array result;
  for (const Value& element : *array) {
    if (auto kept = exact(element, identifier)) result.push_back(std::move(*kept));
  }
  if (result.empty() && !array->empty()) return std::nullopt;
  return Value(std::move(result));
}

}  // namespace

Result<ProvisioningProfile> ProvisioningProfile::parse(foundation::Bytes file) {
  const auto text = propertyListIn(foundation::textOf(file));
  if (!text) return unreadable("no property list in the profile");
  return foundation::PropertyList::parse(foundation::bytesOf(*text))
      .andThen([](Value list) -> Result<ProvisioningProfile> {
        if (!list.dictionary()) return unreadable("the profile is not a dictionary");
        return ProvisioningProfile{std::move(*list.dictionary())};
      });
}

std::vector<foundation::Certificate> ProvisioningProfile::certificates() const {
  std::vector<foundation::Certificate> certificates;
  const Array* entries = arrayAt(contents, "DeveloperCertificates");
  for (const Value& entry : entries ? *entries : Array()) {
    if (!entry.data()) continue;
    if (auto one = foundation::Certificate::fromDER(entry.data()->bytes())) {
      certificates.push_back(*std::move(one));
    }
  }
  return certificates;
}

Dictionary ProvisioningProfile::entitlementsFor(const std::string& identifier) const {
  Dictionary result;
  const Dictionary* granted = dictionaryAt(contents, "Entitlements");
  for (const auto& [key, value] : granted ? *granted : Dictionary()) {
    if (auto kept = exact(value, identifier)) result.emplace(key, std::move(*kept));
  }
  return result;
}

}  // namespace package
