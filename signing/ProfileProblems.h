#pragma once

#include <string>
#include <vector>

#include "foundation/base/Value.h"

class QVTProvisioningProfile;

/// A reason why testers could not install an app, and what to do about it.
struct ProfileProblem {
  std::string problem;
  std::string advice;
};

/// Reasons why devices would not install an app with this identifier and profile: the profile has
/// expired, is for another app, for development, or for no devices.
std::vector<ProfileProblem> profileProblems(const QVTProvisioningProfile& profile,
                                            const std::string& bundleIdentifier,
                                            foundation::Date now);
