#include "signing/SigningCertificate.h"

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/SigningKeychains.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/ProcessInfo.h"

using foundation::Certificate;
using foundation::SigningKeychains;

namespace {

std::string nameOf(const Certificate& certificate) {
  return certificate.subjectSummary().value_or(foundation::uppercaseHex(certificate.sha1()));
}

std::string listOf(const std::vector<std::string>& names) {
  return "\"" + foundation::joined(names, "\", \"") + "\"";
}

/// Names the owners of the private keys whose certificates are in the keychain, too.
std::string holdings(const foundation::Keychain& keychain) {
  const auto count = keychain.privateKeys().size();
  if (count == 0) return "no private key";
  std::vector<std::string> names;
  for (const auto& identity : keychain.identities()) names.push_back(nameOf(identity.certificate));
  std::string text = std::to_string(count) + (count == 1 ? " private key" : " private keys");
  if (!names.empty()) text += " (" + listOf(names) + ")";
  return text;
}

std::string whyNone(const QVTProvisioningProfile& profile, const SigningKeychains& keychains,
                    const std::optional<std::string>& keychainPath) {
  const std::string place = keychainPath.value_or(foundation::appendingPathComponent(
      foundation::FileManager::homeDirectory(), "Library/Keychains"));
  if (!keychainPath && !foundation::FileManager::isDirectoryAtPath(place)) {
    return "no keychain was named, and there is no folder " + place;
  }
  std::vector<std::string> wanted;
  for (const auto& certificate : profile.developerCertificates()) {
    wanted.push_back(certificate->subjectSummary().value_or("a certificate without a name"));
  }
  if (wanted.empty()) return "the profile lists no certificate that can be read";
  return place + " holds " + holdings(keychains.keychain()) + ", and the profile is for " +
         listOf(wanted);
}

}  // namespace

std::optional<std::string> signingKeychain() {
  return foundation::ProcessInfo::environmentValue("CODE_SIGN_KEYCHAIN");
}

foundation::Result<std::shared_ptr<QVTDeveloperCertificate>> certificateToSignWith(
    const QVTProvisioningProfile& profile, const std::optional<std::string>& keychainPath) {
  const auto keychains = SigningKeychains::open(keychainPath);
  if (!keychains) return keychains.error();
  std::optional<foundation::Error> refusal;
  for (const Certificate& certificate : profile.file().certificates()) {
    auto known = profile.certForCodeSignIdentity(foundation::uppercaseHex(certificate.sha1()));
    if (!known) continue;
    const auto admitted = keychains->admits(certificate);
    if (admitted) return known;
    refusal = admitted.error();
  }
  if (refusal) return *refusal;
  return foundation::makeError(QVTProvisioningProfileErrorDomain, -1,
                               whyNone(profile, *keychains, keychainPath));
}
