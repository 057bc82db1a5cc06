#pragma once

#include "foundation/base/Value.h"
#include "preparation/QVTCodeSignedResource.h"

namespace inspect {

/// path, bundleIdentifier, displayVersion, buildVersion, creationDate and provisioningProfilePath.
/// What the app's Info.plist does not state as text is null, and so is the path of a profile that
/// is not there; the resource has something in place of both. Its bundle must be set.
foundation::Dictionary describeIdentity(const QVTCodeSignedResource& resource);

}  // namespace inspect
