#include "signing/QVTDeveloperCertificate.h"

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/Digest.h"
#include "foundation/crypto/Keychain.h"

using foundation::Certificate;
using foundation::Data;
using foundation::Keychain;

namespace {

bool holdsKeyOf(const std::optional<std::string>& keychainPath, const Certificate& certificate) {
  const auto keychain =
      keychainPath ? Keychain::open(*keychainPath) : Keychain::defaultSearchList();
  return keychain && keychain->identityForCertificate(certificate);
}

}  // namespace

std::shared_ptr<QVTDeveloperCertificate> QVTDeveloperCertificate::initWithData(const Data& data) {
  return initWithDataKeychainPath(data, std::nullopt);
}

std::shared_ptr<QVTDeveloperCertificate> QVTDeveloperCertificate::initWithDataKeychainPath(
    const Data& data, std::optional<std::string> keychainPath) {
  const auto certificate = Certificate::fromDER(data.bytes());
  if (!certificate) return nullptr;
  std::shared_ptr<QVTDeveloperCertificate> made(new QVTDeveloperCertificate);
  made->keychainPath_ = std::move(keychainPath);
  made->copyCommonName(*certificate);
  made->copySubjectSummary(*certificate);
  made->copySigningIdentityCertificate(made->keychainPath_, *certificate);
  made->copyOrganizationName(*certificate);
  return made;
}

std::string QVTDeveloperCertificate::description() const {
  return foundation::format("%@, private key available %i, signning identity %@", commonName_,
                            isPrivateKeyAvailable_, signingIdentity_);
}

bool QVTDeveloperCertificate::copyCommonName(const Certificate& certificate) {
  commonName_ = certificate.commonName();
  return commonName_.has_value();
}

bool QVTDeveloperCertificate::copySubjectSummary(const Certificate& certificate) {
  subjectSummary_ = certificate.subjectSummary();
  return subjectSummary_.has_value();
}

bool QVTDeveloperCertificate::copySigningIdentityCertificate(
    const std::optional<std::string>& keychainPath, const Certificate& certificate) {
  if (!holdsKeyOf(keychainPath, certificate)) return false;
  isPrivateKeyAvailable_ = true;
  signingIdentity_ = hexStringFromData(QVTIPASHA1DigestCreate(certificate.der().bytes()));
  return true;
}

bool QVTDeveloperCertificate::copyOrganizationName(const Certificate& certificate) {
  organizationName_ = certificate.subjectValue(foundation::kOIDOrganizationName);
  return organizationName_.has_value();
}

std::string QVTDeveloperCertificate::hexStringFromData(const Data& data) {
  return foundation::uppercaseHex(data.bytes());
}

Data QVTIPASHA1DigestCreate(foundation::Bytes bytes) {
  return Data::copyOf(foundation::sha1(bytes));
}
