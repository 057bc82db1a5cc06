#pragma once

#include "foundation/base/Value.h"
#include "preparation/QVTCodeSignedResource.h"

namespace inspect {

/// path, bundleIdentifier, displayVersion, buildVersion, creationDate and provisioningProfilePath.
/// Unlike in the resource, whose bundle must be set, a value that Info.plist does not have as a
/// string is null, and so is the path of a missing profile.
foundation::Dictionary describeIdentity(const QVTCodeSignedResource& resource);

}  // namespace inspect
