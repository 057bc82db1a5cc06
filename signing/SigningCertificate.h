#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/base/Result.h"
#include "signing/QVTDeveloperCertificate.h"
#include "signing/QVTProvisioningProfile.h"

/// The keychain that the build environment names (CODE_SIGN_KEYCHAIN); absent: the default ones.
std::optional<std::string> signingKeychain();

/// The certificate of the profile that a run signs with: the first whose private key is in the
/// keychain at `keychainPath` (absent: the default keychains), which is the one that the profile
/// was read with. Fails with one line that tells why there is none: what is wrong with the
/// keychain, or whose keys it holds.
foundation::Result<std::shared_ptr<QVTDeveloperCertificate>> certificateToSignWith(
    const QVTProvisioningProfile& profile, const std::optional<std::string>& keychainPath);
