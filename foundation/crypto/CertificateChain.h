#pragma once

#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

namespace foundation {

/// The chain from `leaf` to a self-issued root, leaf first, built from `candidates` by name, key
/// identifier and signature; every issuer must be an authority that its constraints let issue
/// there. Fails with one line that names the missing issuer.
Result<std::vector<Certificate>> certificateChain(const Certificate& leaf,
                                                  const std::vector<Certificate>& candidates);

}  // namespace foundation
