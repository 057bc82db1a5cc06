#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"

namespace toolchain {

/// The provisioning profile inside a bundle ("embedded.mobileprovision", or
/// "embedded.provisionprofile").
struct EmbeddedProfile {
  foundation::Dictionary dictionary;
  /// Those of "DeveloperCertificates" that can be read.
  std::vector<foundation::Certificate> certificates;
};

/// Empty when the bundle has none; fails when there is one that cannot be read.
Result<std::optional<EmbeddedProfile>> embeddedProfileOf(const std::filesystem::path& bundleBase);

/// The entitlements that the profile grants, made exact for this identifier: what stands behind the
/// prefix in a value with a trailing wildcard ("TEAM.*", "TEAM.com.example.*") becomes the
/// identifier. A pattern that the identifier does not fit is left out, and so is a value that is
/// nothing but a wildcard. Empty without entitlements.
foundation::Dictionary concreteEntitlements(const EmbeddedProfile& profile,
                                            const std::string& identifier);

}  // namespace toolchain
