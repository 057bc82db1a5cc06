#pragma once

#include <optional>
#include <string>
#include <vector>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/signature/Hashing.h"

namespace toolchain {

/// How a bundle differs from its seal; paths relative to the bundle unless said otherwise, in
/// ascending byte order.
struct SealDifferences {
  std::vector<std::string> added;
  std::vector<std::string> modified;
  std::vector<std::string> missing;

  /// Absolute paths of the files in the bundle that begin as Mach-O does, noticed on the way.
  std::vector<std::string> machOFiles;
  /// Absolute paths of the nested code that the seal names by its hash: it does not cover their
  /// bytes.
  std::vector<std::string> codeByHash;

  /// True when nothing differs.
  [[nodiscard]] bool empty() const { return added.empty() && modified.empty() && missing.empty(); }
};

/// Compares what was sealed with what is there. The second generation of the list decides where the
/// seal has one; a missing optional item is no difference.
SealDifferences compareSeals(const ResourceSeal& sealed, const ResourceSeal& present);

/// Takes the seal of what is in the bundle now, by the rules of the seal found there, and compares.
/// A bundle without a seal is taken for one that lists nothing. Files next to the seal count as
/// added, and so does what lies beside a Contents folder. Fails when the seal cannot be read or has
/// no rules, or for what no seal can hold.
Result<SealDifferences> compareWithSeal(const CodeBundle& bundle, const std::optional<Bytes>& seal,
                                        FileHasher& hasher);

}  // namespace toolchain
