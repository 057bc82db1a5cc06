#pragma once

#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

namespace foundation {

/// The chain from `leaf` to a self-issued root, leaf first, built from `candidates` by name, key
/// identifier and signature. Every issuer must be an authority whose constraints permit its place
/// in the chain. Fails with one line that names the missing issuer.
Result<std::vector<Certificate>> certificateChain(const Certificate& leaf,
                                                  const std::vector<Certificate>& candidates);

}  // namespace foundation
