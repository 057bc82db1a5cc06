#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/crypto/Keychain.h"

namespace foundation {

/// The keychain whose identities sign, and the user's default keychains, which always provide
/// issuers.
class SigningKeychains {
 public:
  /// The keychain at `path`, or the default keychains. Fails as `Keychain::open` does.
  static Result<SigningKeychains> open(const std::optional<std::filesystem::path>& path);

  [[nodiscard]] const Keychain& keychain() const { return keychain_; }
  /// For messages: the path, or "the default keychains".
  [[nodiscard]] const std::string& name() const { return name_; }

  /// `certificateChain` with the certificates of all these keychains as candidates.
  [[nodiscard]] Result<std::vector<Certificate>> chainOf(const Certificate& leaf) const;

  /// Fails, with one line that says why, for a certificate that must not be used even though its
  /// private key is here: anyone can make a certificate for a public key. Certificates in the
  /// keychain are admitted. Any other is admitted if none in the keychain has the same key and its
  /// chain leads to a known root.
  [[nodiscard]] Result<> admits(const Certificate& certificate) const;

 private:
  Keychain keychain_;
  std::vector<Certificate> issuers_;
  std::string name_;
};

}  // namespace foundation
