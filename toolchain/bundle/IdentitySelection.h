#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/crypto/Keychain.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

/// Who signs: the identity and its chain, leaf first, up to the root.
struct SigningIdentity {
  foundation::Identity identity;
  std::vector<foundation::Certificate> chain;
};

struct IdentityQuery {
  /// 40 hex digits of a certificate's SHA-1, its common name, or a part of one.
  std::string name;
  /// Where the private key is; absent: the user's default list.
  std::optional<std::filesystem::path> keychain;
  /// Certificates that need not be in the keychain. They answer to their hash alone, and only if
  /// `SigningKeychains` admits them.
  std::vector<foundation::Certificate> profileCertificates = {};
};

/// The one identity that answers to the name. Fails with one line when there is none, more than
/// one, when it is the profile's and not admitted, when it is not valid today, or when an issuer is
/// missing from the keychain and the default list.
Result<SigningIdentity> findIdentity(const IdentityQuery& query);

}  // namespace toolchain
