#include "foundation/crypto/SigningKeychains.h"

#include <algorithm>

#include "foundation/base/Text.h"
#include "foundation/crypto/CertificateChain.h"

namespace foundation {

namespace {

std::string named(const Certificate& certificate) {
  return "\"" + certificate.subjectSummary().value_or("without a name") + "\" (" +
         uppercaseHex(certificate.sha1()) + ")";
}

Error notUsed(const Certificate& certificate, const std::string& why) {
  return makeError("CertificateErrorDomain", -3,
                   "the profile's certificate " + named(certificate) + " is not used: " + why);
}

}  // namespace

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

Result<> SigningKeychains::admits(const Certificate& certificate) const {
  const auto& all = keychain_.certificates();
  if (std::ranges::find(all, certificate.der(), &Certificate::der) != all.end()) return {};
  if (const auto identity = keychain_.identityForCertificate(certificate)) {
    const auto owner = std::ranges::find_if(
        all, [&](const Certificate& one) { return identity->privateKey.belongsTo(one); });
    if (owner != all.end()) {
      return notUsed(certificate, "the keychain has " + named(*owner) + " for the same key");
    }
  }
  const auto chain = chainOf(certificate);
  if (!chain) return notUsed(certificate, chain.error().localizedDescription());
  // A chain of one is a certificate that names itself as its issuer.
  if (chain->size() == 1) return notUsed(certificate, "nobody issued it");
  return {};
}

Result<std::vector<Certificate>> SigningKeychains::chainOf(const Certificate& leaf) const {
  return certificateChain(leaf, issuers_);
}

}  // namespace foundation
