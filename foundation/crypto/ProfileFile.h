#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"

/// What every reader of a provisioning profile shares.
namespace foundation {

/// The XML property list inside the signed message, found by text search: the last one of the file.
/// The slice that is searched for its end begins at the XML and is as long as the message up to the
/// last "</plist>", so a message must begin with at least a few bytes of header. The signature is
/// not checked. Absent when the list cannot be found or cut out.
std::optional<std::string_view> propertyListInProfile(std::string_view message);

/// The entries of the profile's "DeveloperCertificates" that are certificates, in order.
std::vector<Certificate> developerCertificatesIn(const Dictionary& profile);

}  // namespace foundation
