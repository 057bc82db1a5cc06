#pragma once

#include <string>
#include <vector>

#include "foundation/base/Value.h"

class QVTProvisioningProfile;

/// One reason why testers could not install an app, and what to do about it.
struct ProfileProblem {
  std::string problem;
  std::string advice;
};

/// What keeps devices from installing an app of this identifier with this profile: it has expired,
/// is for another app, for development, or for no devices.
std::vector<ProfileProblem> profileProblems(const QVTProvisioningProfile& profile,
                                            const std::string& bundleIdentifier,
                                            foundation::Date now);
