#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Value.h"
#include "foundation/crypto/Certificate.h"
#include "foundation/crypto/Keychain.h"

/// Certificates, keys and provisioning profiles built in code. Errors of the crypto library are
/// thrown, which fails the test.
namespace test {

enum class KeyKind { rsa, p256 };

inline constexpr std::string_view kIntermediateMarker = "1.2.840.113635.100.6.2.1";
inline constexpr std::string_view kDistributionMarker = "1.2.840.113635.100.6.1.4";

struct CertificateOptions {
  std::string commonName = "iPhone Distribution: Example Corp (ABCDE12345)";
  std::vector<std::string> organizations = {"Example Corp"};
  /// Left out of the subject when empty, like the common name.
  std::string organizationalUnit = "ABCDE12345";
  std::string emailAddress = "";
  KeyKind key = KeyKind::p256;
  /// The critical extended key usage "code signing".
  bool codeSigning = true;
  /// A server's alternative names in OpenSSL's notation: "DNS:localhost,IP:127.0.0.1".
  std::string alternativeNames = "";
  /// Dotted OIDs of further extensions, each with an ASN.1 NULL as its value.
  std::vector<std::string> markers = {};
  /// Counted from now.
  std::chrono::seconds validFrom = -std::chrono::hours(24);
  std::chrono::seconds validUntil = std::chrono::hours(24 * 365);
};

/// A certificate with its private key. Copies share both.
class MadeIdentity {
 public:
  MadeIdentity(x509_st* certificate, evp_pkey_st* key);

  [[nodiscard]] foundation::Data der() const;
  [[nodiscard]] std::string certificatePEM() const;
  /// PKCS #8; encrypted with AES-256 when a passphrase is given.
  [[nodiscard]] std::string keyPEM(std::optional<std::string> passphrase = std::nullopt) const;
  /// In OpenSSL's own form ("Proc-Type: 4,ENCRYPTED").
  [[nodiscard]] std::string oldKeyPEM(std::string passphrase) const;
  /// 40 upper-case hexadecimal digits, as for `--sign`.
  [[nodiscard]] std::string sha1() const;
  [[nodiscard]] foundation::Certificate certificate() const;
  [[nodiscard]] foundation::Identity identity() const;

  [[nodiscard]] x509_st* native() const { return certificate_.get(); }
  [[nodiscard]] evp_pkey_st* nativeKey() const { return key_.get(); }

 private:
  std::shared_ptr<x509_st> certificate_;
  std::shared_ptr<evp_pkey_st> key_;
};

MadeIdentity makeRoot(const std::string& commonName = "Test Root CA", KeyKind key = KeyKind::p256);
/// Carries `kIntermediateMarker`.
MadeIdentity makeIntermediate(const MadeIdentity& root,
                              const std::string& commonName = "Test Developer Relations CA",
                              KeyKind key = KeyKind::p256);
/// "Issuer" with these extensions in OpenSSL's notation ("CA:TRUE,pathlen:0", "keyCertSign"); an
/// empty one is left out.
MadeIdentity makeIssuer(const MadeIdentity& root, const std::string& basicConstraints,
                        const std::string& keyUsage);
MadeIdentity makeLeaf(const MadeIdentity& issuer, const CertificateOptions& options = {});

/// A certificate over the victim's public key by another issuer, as anyone who knows that key can
/// make.
MadeIdentity makeForged(const MadeIdentity& victim, const MadeIdentity& issuer,
                        const std::string& commonName);

/// Another certificate with the name and key of `identity`, signed by `issuer`.
MadeIdentity makeCrossSigned(const MadeIdentity& identity, const MadeIdentity& issuer);

/// Leaf, intermediate and root, each issued by the next.
struct Family {
  MadeIdentity leaf;
  MadeIdentity intermediate;
  MadeIdentity root;

  /// The leaf's key, and the certificates leaf, intermediate, root, as one PEM text.
  [[nodiscard]] std::string pem() const;
  [[nodiscard]] std::vector<foundation::Certificate> chain() const {
    return {leaf.certificate(), intermediate.certificate(), root.certificate()};
  }
};
Family makeFamily(const CertificateOptions& options = {});
/// The same below a root that has the name of one of the platform vendor's.
Family makeDeveloperFamily(const std::string& commonName = CertificateOptions().commonName);

/// A certificate authority for servers of tests, new for each object.
class TLSAuthority {
 public:
  /// Its certificate as PEM, for a client's list of trusted ones.
  [[nodiscard]] std::string certificate() const { return root_.certificatePEM(); }
  /// For "localhost" and 127.0.0.1.
  [[nodiscard]] MadeIdentity issue() const;

 private:
  MadeIdentity root_ = makeRoot("sendoff test authority");
};

struct PKCS12Options {
  enum class Encryption {
    /// AES-256 with PBKDF2, as OpenSSL 3 writes.
    modern,
    /// RC2-40 for the certificates and 3DES for the key, as Keychain Access exports them.
    old
  };
  Encryption encryption = Encryption::modern;
  /// Absent means none, which differs from an empty one.
  std::optional<std::string> passphrase = std::nullopt;
};
/// The identity, with `others` as further certificates.
foundation::Data makePKCS12(const MadeIdentity& identity,
                            const std::vector<MadeIdentity>& others = {},
                            const PKCS12Options& options = {});

/// The part of a key file that asks for key derivation.
enum class SlowPart { integrityCheck, contents, key, keyByScrypt, keyInPEM };
/// A key file without a readable key, of which only this part asks for `iterations`.
std::string makeSlowKeyFile(SlowPart part, std::uint64_t iterations);

/// The contents of a provisioning profile. Every member can be changed in `dictionary()`
/// afterwards.
struct ProfileOptions {
  std::string name = "Example Distribution";
  std::string uuid = "11111111-2222-3333-4444-555555555555";
  std::string prefix = "ABCDE12345";
  /// Without the prefix.
  std::string bundleIdentifier = "com.example.app";
  std::string teamName = "Example Corp";
  std::vector<foundation::Data> developerCertificates = {};
  /// An absent array is left out, as in an App Store profile.
  std::optional<std::vector<std::string>> provisionedDevices = std::nullopt;
  bool provisionsAllDevices = false;
  bool getTaskAllow = false;
  foundation::Date creationDate = std::chrono::sys_days{std::chrono::year{2015} / 3 / 1};
  foundation::Date expirationDate = std::chrono::sys_days{std::chrono::year{2045} / 3 / 1};
  /// Merged over application-identifier, team identifier, get-task-allow and keychain groups.
  foundation::Dictionary entitlements = {};

  [[nodiscard]] foundation::Dictionary dictionary() const;
};

/// A signed CMS message with `content` attached, in DER, like a .mobileprovision file.
foundation::Data makeSignedMessage(std::string_view content, const MadeIdentity& signer);
/// A detached signature over the content itself: a message without signed attributes.
foundation::Data makeBareSignature(std::string_view content, const Family& family);
/// The dictionary as an XML property list in such a message.
foundation::Data makeProvisioningProfile(const foundation::Dictionary& dictionary,
                                         const MadeIdentity& signer);

}  // namespace test
