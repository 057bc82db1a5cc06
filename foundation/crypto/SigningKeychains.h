#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/crypto/Keychain.h"

namespace foundation {

/// Where one signs from: a keychain with identities, and the user's default list, which is asked
/// for issuers in any case.
class SigningKeychains {
 public:
  /// The keychain at `path`, or the default list. Fails as `Keychain::open` does.
  static Result<SigningKeychains> open(const std::optional<std::filesystem::path>& path);

  [[nodiscard]] const Keychain& keychain() const { return keychain_; }
  /// For messages: the path, or "the default keychains".
  [[nodiscard]] const std::string& name() const { return name_; }

  /// As `certificateChain`, from the certificates of the keychain and of the default list.
  [[nodiscard]] Result<std::vector<Certificate>> chainOf(const Certificate& leaf) const;

  /// Fails, with one line that says why, for a certificate that must not be used although its
  /// private key is here: a public key is no secret, so anybody can make a certificate over it.
  /// Admitted are those of the keychain, and another one when none here is over the same key and
  /// its chain leads to a root that is at hand.
  [[nodiscard]] Result<> admits(const Certificate& certificate) const;

 private:
  Keychain keychain_;
  std::vector<Certificate> issuers_;
  std::string name_;
};

}  // namespace foundation
