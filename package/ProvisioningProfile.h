#pragma once

#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"

namespace package {

/// A provisioning profile: an XML property list signed as a CMS message (RFC 5652). The list is cut
/// out by text search and the signature is not checked, which is up to the device.
struct ProvisioningProfile {
  foundation::Dictionary contents;

  /// Of several property lists in the file the last counts. It must lie at least eight bytes into
  /// the file; its offset and that of its "</plist>" must not add up to more than the file's size.
  /// Fails if the file has no such list, if the list is not a dictionary, or if it cannot be read.
  static foundation::Result<ProvisioningProfile> parse(foundation::Bytes file);

  /// The entries of "DeveloperCertificates" that are certificates, in order.
  [[nodiscard]] std::vector<foundation::Certificate> certificates() const;

  /// The entitlements granted to this bundle identifier, which replaces the wildcard that ends a
  /// value ("TEAM.*", "TEAM.com.example.*"). Without values that the identifier does not match or
  /// that are only a wildcard.
  [[nodiscard]] foundation::Dictionary entitlementsFor(const std::string& identifier) const;
};

}  // namespace package
