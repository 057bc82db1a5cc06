#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/crypto/Digest.h"
#include "toolchain/common/Messages.h"
#include "toolchain/seal/ResourceRules.h"

/// _CodeSignature/CodeResources: the list of everything in a bundle besides its executable.
namespace toolchain {

/// What a seal says about one path. Exactly one of hashes, link text and nested code.
struct SealedItem {
  std::optional<foundation::SHA1Digest> sha1;
  std::optional<foundation::SHA256Digest> sha256;
  std::optional<std::string> linkTarget;
  /// Nested code: its strongest cdhash (20 bytes) and its designated requirement's text.
  std::optional<std::string> cdHash;
  std::string requirement;
  bool optional = false;
  friend bool operator==(const SealedItem&, const SealedItem&) = default;
};

/// By relative path in ascending byte order.
using SealedItems = std::map<std::string, SealedItem, std::less<>>;

struct ResourceSeal {
  /// SHA-1 only, regular files only.
  SealedItems files;
  SealedItems files2;
  ResourceRules rules;
  /// Those of the files that begin as Mach-O does; empty in a seal that was read.
  std::vector<std::string> machOFiles;
};

/// The property list as the platform's tool lays it out. Fails for a path or link with characters
/// that XML cannot hold.
Result<std::string> text(const ResourceSeal& seal);
/// Accepts every seal of the platform's tool, also one without the second generation.
Result<ResourceSeal> parseResourceSeal(Bytes file);

}  // namespace toolchain
