#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"

/// Certificates, keys and provisioning profiles. Errors of the crypto library are thrown, which
/// fails the test.
namespace test {

enum class KeyKind { rsa, p256 };

inline constexpr std::string_view kIntermediateMarker = "1.2.840.113635.100.6.2.1";

/// A certificate with its private key. Copies share both.
class MadeIdentity {
 public:
  explicit MadeIdentity(foundation::Identity identity) : identity_(std::move(identity)) {}

  [[nodiscard]] const foundation::Identity& identity() const { return identity_; }
  [[nodiscard]] const foundation::Certificate& certificate() const { return identity_.certificate; }
  [[nodiscard]] const foundation::Data& der() const { return certificate().der(); }
  [[nodiscard]] std::string certificatePEM() const;
  /// PKCS #8, not encrypted.
  [[nodiscard]] std::string keyPEM() const;
  /// 40 upper-case hexadecimal digits, as for `--sign`.
  [[nodiscard]] std::string sha1() const;

 private:
  foundation::Identity identity_;
};

struct CertificateOptions {
  std::string commonName = "iPhone Distribution: Example Corp (ABCDE12345)";
  std::vector<std::string> organizations = {"Example Corp"};
  /// Left out of the subject when empty, like the other names.
  std::string organizationalUnit = "ABCDE12345";
  /// Lines of an OpenSSL configuration.
  std::string extensions =
      "basicConstraints=critical,CA:FALSE\n"
      "keyUsage=critical,digitalSignature\n"
      "extendedKeyUsage=critical,codeSigning\n";
  /// Dotted OIDs of further extensions, each with an ASN.1 NULL as its value.
  std::vector<std::string> markers = {};
  /// Counted from now.
  std::chrono::seconds validFrom = -std::chrono::hours(24);
  std::chrono::seconds validUntil = std::chrono::hours(24 * 365);
  KeyKind key = KeyKind::p256;
  /// Whose key the certificate is over, if not a new one's.
  std::optional<MadeIdentity> keyHolder = std::nullopt;
};

MadeIdentity makeLeaf(const MadeIdentity& issuer, const CertificateOptions& options = {});
MadeIdentity makeRoot(const std::string& commonName = "Test Root CA");
/// Carries `kIntermediateMarker`.
MadeIdentity makeIntermediate(const MadeIdentity& root,
                              const std::string& commonName = "Test Developer Relations CA",
                              const CertificateOptions& keyOptions = {});

/// Leaf, intermediate and root, each issued by the next.
struct Family {
  MadeIdentity leaf;
  MadeIdentity intermediate;
  MadeIdentity root;

  [[nodiscard]] std::string issuersPEM() const;
  /// The leaf's key, and the certificates leaf, intermediate, root, as one PEM text.
  [[nodiscard]] std::string pem() const;
  [[nodiscard]] std::vector<foundation::Certificate> chain() const;
};
Family makeFamily(const CertificateOptions& options = {}, const MadeIdentity& root = makeRoot());

/// What `openssl cms -sign` makes in DER, with these options and further certificates. By default
/// it contains the content, like a .mobileprovision file.
foundation::Data makeSignedMessage(std::string_view content, const MadeIdentity& signer,
                                   const std::vector<std::string>& options = {"-nodetach"},
                                   const std::string& certificatesPEM = "");
/// A detached signature over the content itself: a message without signed attributes.
foundation::Data makeBareSignature(std::string_view content, const Family& family);
/// The dictionary as an XML property list in a signed message.
foundation::Data makeProvisioningProfile(const foundation::Dictionary& dictionary,
                                         const MadeIdentity& signer);

/// The contents of a provisioning profile. Every member can be changed in `dictionary()`
/// afterwards.
struct ProfileOptions {
  std::string name = "Example Distribution";
  std::string uuid = "11111111-2222-3333-4444-555555555555";
  /// Without the prefix.
  std::string bundleIdentifier = "com.example.app";
  std::vector<foundation::Data> developerCertificates = {};
  foundation::Date creationDate = std::chrono::sys_days{std::chrono::year{2015} / 3 / 1};

  [[nodiscard]] foundation::Dictionary dictionary() const;
};

}  // namespace test
