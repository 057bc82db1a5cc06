#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/base/Result.h"
#include "signing/QVTDeveloperCertificate.h"
#include "signing/QVTProvisioningProfile.h"

/// The keychain that the build environment names (CODE_SIGN_KEYCHAIN). Absent: the default ones.
std::optional<std::string> signingKeychain();

/// The profile's first certificate that has its private key in the keychain (absent: the default
/// ones), which must be the one that the profile was read with. The error says what is wrong with
/// the keychain, or whose keys it has, in one line.
foundation::Result<std::shared_ptr<QVTDeveloperCertificate>> certificateToSignWith(
    const QVTProvisioningProfile& profile, const std::optional<std::string>& keychainPath);
