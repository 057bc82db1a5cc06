#include "foundation/crypto/ProfileFile.h"

namespace foundation {

std::optional<std::string_view> propertyListInProfile(std::string_view message) {
  constexpr std::string_view kStart = "<?xml";
  constexpr std::string_view kEnd = "</plist>";
  const auto start = message.rfind(kStart);
  const auto end = message.rfind(kEnd);
  if (start == message.npos || end == message.npos) return std::nullopt;
  if (end > message.size() - start) return std::nullopt;
  const auto slice = message.substr(start, end);
  const auto endInSlice = slice.find(kEnd);
  if (endInSlice == slice.npos) return std::nullopt;
  return slice.substr(0, endInSlice + kEnd.size());
}

std::vector<Certificate> developerCertificatesIn(const Dictionary& profile) {
  std::vector<Certificate> certificates;
  const Array* entries = arrayAt(profile, "DeveloperCertificates");
  for (const Value& entry : entries ? *entries : Array()) {
    if (!entry.data()) continue;
    if (auto one = Certificate::fromDER(entry.data()->bytes())) {
      certificates.push_back(*std::move(one));
    }
  }
  return certificates;
}

}  // namespace foundation
