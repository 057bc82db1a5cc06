#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/crypto/Keychain.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

/// An identity and its chain, leaf first, up to the root.
struct SigningIdentity {
  foundation::Identity identity;
  std::vector<foundation::Certificate> chain;
};

struct IdentityQuery {
  /// 40 hex digits of a certificate's SHA-1, its common name, or a part of one.
  std::string name;
  /// Where the private key is; absent: the user's default list.
  std::optional<std::filesystem::path> keychain;
  /// Certificates that need not be in the keychain. They are found by their hash only, and only if
  /// `SigningKeychains` admits them.
  std::vector<foundation::Certificate> profileCertificates = {};
};

/// The one identity of that name. Fails with one line when there is none or more than one, when it
/// is a profile's and not admitted, not valid today, or when the keychain and the default list lack
/// an issuer.
Result<SigningIdentity> findIdentity(const IdentityQuery& query);

}  // namespace toolchain
