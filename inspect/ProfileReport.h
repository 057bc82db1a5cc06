#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "inspect/TextOutput.h"

class QVTProvisioningProfile;

namespace inspect {

/// What a profile is seen against.
struct ProfileSurroundings {
  /// Where private keys are looked for; absent: the default keychains.
  std::optional<std::string> keychainPath;
  /// The installed profiles.
  std::vector<std::shared_ptr<QVTProvisioningProfile>> installed;
  foundation::Date now;

  /// As they are at this moment.
  static ProfileSurroundings current(std::optional<std::string> keychainPath);
};

/// Every property of the profile under its name, `daysToExpiry` (whole days, negative once
/// expired), `developerCertificates` with the SHA-1 of each, and `newerMatch`: the installed
/// profile that supersedes this one, or null.
foundation::Value describeProfile(const QVTProvisioningProfile& profile,
                                  const ProfileSurroundings& surroundings);

/// Device identifiers and people's names only when `withPeople`; else they are counted.
struct ProfileTextOptions {
  bool withPeople = false;
};
void showProfile(const foundation::Value& document, const ProfileTextOptions& options,
                 TextOutput& text);

}  // namespace inspect
