#include "tests/support/TLSCertificates.h"

namespace test {

TLSIdentity TLSAuthority::issue(const Leaf& leaf) const {
  CertificateOptions options;
  options.commonName = leaf.hostName;
  options.organizations = {};
  options.organizationalUnit = "";
  options.codeSigning = false;
  options.alternativeNames = "DNS:" + leaf.hostName;
  if (leaf.hostName == "localhost") options.alternativeNames += ",IP:127.0.0.1";
  options.validFrom = -std::chrono::hours(24 * 30);
  options.validUntil = std::chrono::hours(24) * leaf.expiresAfterDays;
  return makeLeaf(root_, options);
}

}  // namespace test
