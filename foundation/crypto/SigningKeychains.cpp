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
  return makeError(kCertificateErrorDomain, kCertificateNotAdmitted,
                   "the profile's certificate " + named(certificate) + " is not used: " + why);
}

}  // namespace

Result<SigningKeychains> SigningKeychains::open(const std::optional<std::filesystem::path>& path) {
  const Keychain defaults = Keychain::defaultSearchList();
  const auto opened = path ? Keychain::open(*path) : defaults;
  return opened.map([&](const Keychain& keychain) {
    SigningKeychains result;
    result.name_ = path ? path->string() : "the default keychains";
    result.keychain_ = keychain;
    result.issuers_ = keychain.certificates();
    std::ranges::copy(defaults.certificates(), std::back_inserter(result.issuers_));
    return result;
  });
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
  // A chain of one is a self-issued certificate.
  if (chain->size() == 1) return notUsed(certificate, "nobody issued it");
  return {};
}

Result<std::vector<Certificate>> SigningKeychains::chainOf(const Certificate& leaf) const {
  return certificateChain(leaf, issuers_);
}

}  // namespace foundation
