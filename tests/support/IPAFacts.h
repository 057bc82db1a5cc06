#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "foundation/base/Value.h"

namespace test {

/// Facts about an .ipa, determined by independent programs: `unzip`, `openssl cms` and LLVM's
/// dwarfdump.
struct IPAFacts {
  foundation::Dictionary info;
  foundation::Dictionary profile;
  std::set<std::string> devices;
  /// Architecture and UUID (32 lower-case hexadecimal digits), in file order.
  std::vector<std::pair<std::string, std::string>> slices;
  /// SHA-1 of the UUIDs in the order of their architectures' names.
  std::string instanceIdentifier;
  /// Every name in the archive.
  std::vector<std::string> names;
};

/// Throws std::runtime_error unless the bytes are an .ipa with one app, one profile and an
/// executable.
IPAFacts factsOf(const std::string& ipaBytes);

/// Unpacks into a new folder below `folder` and returns the app's path.
std::filesystem::path unpackIPA(const std::filesystem::path& ipa,
                                const std::filesystem::path& folder);

/// UUIDs of the executable's slices in file order, as in `IPAFacts`.
std::vector<std::pair<std::string, std::string>> slicesOf(const std::filesystem::path& executable);

}  // namespace test
