// Certificates and key files: DER, PEM and PKCS #12.
#include "foundation/crypto/private/KeyDerivationBudget.h"
#include "foundation/crypto/private/KeychainFiles.h"
#include "fuzz/FuzzTarget.h"

namespace {

void readCertificate(const foundation::Certificate& certificate) {
  fuzz::ignore(certificate.subject(), certificate.subjectSummary(), certificate.commonName(),
               certificate.issuerText(), certificate.notBefore(), certificate.notAfter(),
               certificate.isIssuedBy(certificate),
               certificate.extensionValue("1.2.840.113635.100.6.1.4"), certificate.sha1());
}

}  // namespace

void fuzz::readInput(foundation::Bytes input) {
  const fuzz::MemoryFile file(input);
  std::uint64_t iterations = foundation::KeyDerivationBudget::kMaximum;
  const auto contents = foundation::readKeychainFile(file.path(), iterations);
  if (!contents) return;
  for (const auto& certificate : contents->certificates) {
    readCertificate(certificate);
    for (const auto& key : contents->keys) fuzz::ignore(key.belongsTo(certificate));
  }
}
