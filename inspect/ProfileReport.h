#pragma once

#include <optional>
#include <string>

#include "foundation/Value.h"
#include "inspect/TextOutput.h"

class QVTProvisioningProfile;

namespace inspect {

/// Every property of the profile under its name, `daysToExpiry` (whole days, negative once
/// expired), `developerCertificates` with the SHA-1 of each, and `newerMatch`: the installed
/// profile that supersedes this one, or null.
foundation::Value describeProfile(const QVTProvisioningProfile& profile,
                                  const std::optional<std::string>& keychainPath,
                                  foundation::Date now);

/// Device identifiers and people's names only when `withPeople`; else they are counted.
struct ProfileTextOptions {
  bool withPeople = false;
};
void showProfile(const foundation::Value& document, const ProfileTextOptions& options,
                 TextOutput& text);

}  // namespace inspect
