#pragma once

#include <optional>
#include <vector>

#include "foundation/crypto/CMS.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/CodeDirectory.h"
#include "toolchain/signature/RequirementEvaluation.h"

/// What the blobs of a signature say, besides hashes: checked each for itself and with each other.
namespace toolchain {

/// The entitlements in slots 5 and 7; empty without. Fails when a form is malformed or the two
/// describe different dictionaries.
Result<foundation::Dictionary> checkedEntitlements(const SuperBlob& signature);

/// Checks the CMS against the CodeDirectories: the message covers the primary one, its hash lists
/// name every one. Absent for an ad-hoc signature, which must have none. Fails for a developer's
/// certificate of another team. Whether certificates are still valid, and who trusts the
/// root, is not asked.
Result<std::optional<foundation::CMS::Signer>> checkedSigner(
    const SuperBlob& signature, const std::vector<CodeDirectory>& directories);

/// The designated requirement in slot 2; absent without one. Fails when any requirement there is
/// malformed.
Result<std::optional<requirement::Expression>> designatedRequirement(const SuperBlob& signature);

}  // namespace toolchain
