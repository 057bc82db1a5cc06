#include "signing/ProfileProblems.h"

#include "foundation/base/Format.h"
#include "signing/QVTProvisioningProfile.h"

std::vector<ProfileProblem> profileProblems(const QVTProvisioningProfile& profile,
                                            const std::string& bundleIdentifier,
                                            foundation::Date now) {
  std::vector<ProfileProblem> problems;
  if (const auto end = profile.expirationDate(); end && *end <= now) {
    problems.push_back({"the provisioning profile expired on " + foundation::dayOf(*end),
                        "renew it in the developer account and archive again"});
  }
  if (!profile.matchesBundleIdentifier(bundleIdentifier)) {
    problems.push_back({"the profile is for " + profile.bundleIdentifier().value_or("(null)") +
                            ", the app is " + bundleIdentifier,
                        "choose the profile of this app"});
  }
  if (profile.getTaskAllow()) {
    problems.push_back({"the profile is for development (get-task-allow), not for testers",
                        "archive with an ad hoc or enterprise profile"});
  }
  if (profile.provisionedDevices().empty() && !profile.provisionsAllDevices()) {
    problems.push_back({"the profile names no devices, so nobody can install the app",
                        "archive with an ad hoc or enterprise profile"});
  }
  return problems;
}
