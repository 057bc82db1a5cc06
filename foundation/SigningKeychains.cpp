#include "foundation/SigningKeychains.h"

namespace foundation {

Result<SigningKeychains> SigningKeychains::open(const std::optional<std::filesystem::path>& path) {
  const Keychain defaults = Keychain::defaultSearchList();
  SigningKeychains result;
  result.name_ = "the default keychains";
  result.keychain_ = defaults;
  if (path) {
    auto opened = Keychain::open(*path);
    if (!opened) return opened.error();
    result.name_ = path->string();
    result.keychain_ = *std::move(opened);
  }
  result.issuers_ = result.keychain_.certificates();
  const auto& more = defaults.certificates();
  result.issuers_.insert(result.issuers_.end(), more.begin(), more.end());
  return result;
}

Result<std::vector<Certificate>> SigningKeychains::chainOf(const Certificate& leaf) const {
  return certificateChain(leaf, issuers_);
}

}  // namespace foundation
