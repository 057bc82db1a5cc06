#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "inspect/TextOutput.h"

class QVTProvisioningProfile;

namespace inspect {

/// The context in which profiles are described.
struct ProfileSurroundings {
  /// Where to look up private keys; absent for the default keychains.
  std::optional<std::string> keychainPath;
  std::vector<std::shared_ptr<QVTProvisioningProfile>> installed;
  foundation::Date now;

  /// The profiles installed now.
  static ProfileSurroundings current(std::optional<std::string> keychainPath);
};

/// Every property of the profile under its name, `daysToExpiry` (whole days, negative once
/// expired), `developerCertificates` with their SHA-1, and `newerMatch`: the installed profile that
/// supersedes this one, or null.
foundation::Value describeProfile(const QVTProvisioningProfile& profile,
                                  const ProfileSurroundings& surroundings);

void showProfile(const foundation::Value& document, TextOutput& text);

}  // namespace inspect
