#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Keychain.h"

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

 private:
  Keychain keychain_;
  std::vector<Certificate> issuers_;
  std::string name_;
};

}  // namespace foundation
