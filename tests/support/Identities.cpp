#include "tests/support/Identities.h"

#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include "foundation/crypto/DER.h"
#include "foundation/crypto/Digest.h"
#include "foundation/crypto/OpenSSL.h"
#include "tests/support/Test.h"

namespace test {

using foundation::BIOHandle;
using foundation::encoded;
using foundation::Handle;
namespace DER = foundation::DER;

namespace {

/// Throws the library's error text unless a call succeeded.
void require(bool succeeded, const char* what) {
  if (succeeded) return;
  char reason[256];
  ERR_error_string_n(ERR_peek_last_error(), reason, sizeof reason);
  throw std::runtime_error(std::string(what) + ": " + reason);
}

/// What a function of the library writes.
template <class Write>
std::string written(const Write& write) {
  const BIOHandle buffer(BIO_new(BIO_s_mem()));
  require(buffer && write(buffer.get()) == 1, "writing");
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(buffer.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

EVP_PKEY* makeKey(KeyKind kind) {
  EVP_PKEY* key = kind == KeyKind::rsa ? EVP_RSA_gen(2048u) : EVP_EC_gen("P-256");
  require(key != nullptr, "key generation");
  return key;
}

void setSubject(X509* certificate, const CertificateOptions& options) {
  std::vector<std::pair<const char*, std::string>> parts = {{"CN", options.commonName},
                                                            {"OU", options.organizationalUnit}};
  for (const auto& organization : options.organizations) parts.emplace_back("O", organization);
  parts.emplace_back("emailAddress", options.emailAddress);
  for (const auto& [field, value] : parts) {
    if (value.empty()) continue;
    const auto* bytes = reinterpret_cast<const unsigned char*>(value.c_str());
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), field, MBSTRING_UTF8,
                                       bytes, -1, -1, 0) == 1,
            "subject name");
  }
}

/// Extensions as in an OpenSSL configuration file.
void addExtensions(X509* certificate, X509* issuer, const std::string& lines) {
  const Handle<CONF, NCONF_free> configuration(NCONF_new(nullptr));
  const BIOHandle reader = foundation::memoryReader(bytesOf(lines));
  require(NCONF_load_bio(configuration.get(), reader.get(), nullptr) == 1, "extensions");
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509V3_set_nconf(&context, configuration.get());
  require(X509V3_EXT_add_nconf(configuration.get(), &context, "default", certificate) == 1,
          "extensions");
}

struct Making {
  CertificateOptions options;
  /// In OpenSSL's notation; left out when empty.
  std::string basicConstraints = "critical,CA:FALSE";
  std::string keyUsage = "critical,digitalSignature";
  /// Null for a self-signed certificate.
  const MadeIdentity* issuer = nullptr;
  /// Null for a new key.
  const MadeIdentity* keyHolder = nullptr;

  [[nodiscard]] std::string extensions() const {
    std::string lines = "subjectKeyIdentifier=hash\nauthorityKeyIdentifier=keyid:always\n";
    const auto add = [&](const std::string& name, const std::string& value) {
      if (!value.empty()) lines += name + "=" + value + "\n";
    };
    add("basicConstraints", basicConstraints);
    add("keyUsage", keyUsage);
    add("extendedKeyUsage", options.codeSigning ? "critical,codeSigning" : "");
    add("subjectAltName", options.alternativeNames);
    for (const auto& oid : options.markers) add(oid, "ASN1:NULL");
    return lines;
  }
};

void sign(X509* certificate, X509* issuer, EVP_PKEY* key) {
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
              X509_sign(certificate, key, EVP_sha256()) > 0,
          "signature");
}

MadeIdentity make(const Making& making) {
  EVP_PKEY* key = making.keyHolder ? making.keyHolder->nativeKey() : makeKey(making.options.key);
  if (making.keyHolder) EVP_PKEY_up_ref(key);
  MadeIdentity made(X509_new(), key);
  X509* certificate = made.native();
  X509* issuer = making.issuer ? making.issuer->native() : certificate;
  std::uint64_t number = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1 &&
              ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1) == 1 &&
              X509_set_version(certificate, X509_VERSION_3) == 1 &&
              X509_set_pubkey(certificate, key) == 1,
          "certificate");
  X509_gmtime_adj(X509_getm_notBefore(certificate), making.options.validFrom.count());
  X509_gmtime_adj(X509_getm_notAfter(certificate), making.options.validUntil.count());
  setSubject(certificate, making.options);
  addExtensions(certificate, issuer, making.extensions());
  sign(certificate, issuer, making.issuer ? making.issuer->nativeKey() : key);
  return made;
}

Making authority(const std::string& commonName, KeyKind key, const MadeIdentity* issuer = nullptr) {
  return {.options = {.commonName = commonName,
                      .organizations = {"Test Authority"},
                      .organizationalUnit = "Certification Authority",
                      .key = key,
                      .codeSigning = false,
                      .validUntil = std::chrono::hours(24 * 365 * 20)},
          .basicConstraints = "critical,CA:TRUE",
          .keyUsage = "critical,keyCertSign,cRLSign",
          .issuer = issuer};
}

/// The old algorithms are in a module that has to be loaded, apart from the default library
/// context, which must behave as it does in the tool.
OSSL_LIB_CTX* libraryFor(PKCS12Options::Encryption encryption) {
  if (encryption == PKCS12Options::Encryption::modern) return nullptr;
  static OSSL_LIB_CTX* const library = [] {
    OSSL_LIB_CTX* made = OSSL_LIB_CTX_new();
    require(OSSL_PROVIDER_load(made, "default") && OSSL_PROVIDER_load(made, "legacy"),
            "legacy algorithms");
    return made;
  }();
  return library;
}

}  // namespace

MadeIdentity::MadeIdentity(x509_st* certificate, evp_pkey_st* key)
    : certificate_(certificate, X509_free), key_(key, EVP_PKEY_free) {}

Data MadeIdentity::der() const { return Data(encoded(native(), i2d_X509)); }

std::string MadeIdentity::certificatePEM() const {
  return written([this](BIO* buffer) { return PEM_write_bio_X509(buffer, native()); });
}

std::string MadeIdentity::keyPEM(std::optional<std::string> passphrase) const {
  const std::string phrase = passphrase.value_or("");
  return written([&](BIO* buffer) {
    return PEM_write_bio_PKCS8PrivateKey(buffer, nativeKey(),
                                         passphrase ? EVP_aes_256_cbc() : nullptr, phrase.data(),
                                         static_cast<int>(phrase.size()), nullptr, nullptr);
  });
}

std::string MadeIdentity::oldKeyPEM(std::string passphrase) const {
  return written([&](BIO* buffer) {
    return PEM_write_bio_PrivateKey_traditional(
        buffer, nativeKey(), EVP_aes_256_cbc(), reinterpret_cast<unsigned char*>(passphrase.data()),
        static_cast<int>(passphrase.size()), nullptr, nullptr);
  });
}

std::string MadeIdentity::sha1() const {
  return foundation::uppercaseHex(foundation::sha1(der().bytes()));
}

foundation::Certificate MadeIdentity::certificate() const {
  X509_up_ref(native());
  return foundation::Certificate::adopt(native());
}

foundation::Identity MadeIdentity::identity() const {
  EVP_PKEY_up_ref(nativeKey());
  return {certificate(), foundation::PrivateKey::adopt(nativeKey())};
}

MadeIdentity makeRoot(const std::string& commonName, KeyKind key) {
  return make(authority(commonName, key));
}

MadeIdentity makeIntermediate(const MadeIdentity& root, const std::string& commonName,
                              KeyKind key) {
  Making making = authority(commonName, key, &root);
  making.options.markers = {std::string(kIntermediateMarker)};
  return make(making);
}

MadeIdentity makeIssuer(const MadeIdentity& root, const std::string& basicConstraints,
                        const std::string& keyUsage) {
  Making making = authority("Issuer", KeyKind::p256, &root);
  making.basicConstraints = basicConstraints;
  making.keyUsage = keyUsage;
  return make(making);
}

MadeIdentity makeLeaf(const MadeIdentity& issuer, const CertificateOptions& options) {
  return make({.options = options, .issuer = &issuer});
}

MadeIdentity makeForged(const MadeIdentity& victim, const MadeIdentity& issuer,
                        const std::string& commonName) {
  return make({.options = {.commonName = commonName}, .issuer = &issuer, .keyHolder = &victim});
}

MadeIdentity makeCrossSigned(const MadeIdentity& identity, const MadeIdentity& issuer) {
  EVP_PKEY_up_ref(identity.nativeKey());
  MadeIdentity made(X509_dup(identity.native()), identity.nativeKey());
  X509* certificate = made.native();
  const int old = X509_get_ext_by_NID(certificate, NID_authority_key_identifier, -1);
  X509_EXTENSION_free(X509_delete_ext(certificate, old));
  addExtensions(certificate, issuer.native(), "authorityKeyIdentifier=keyid:always\n");
  sign(certificate, issuer.native(), issuer.nativeKey());
  return made;
}

std::string Family::pem() const {
  return leaf.keyPEM() + leaf.certificatePEM() + intermediate.certificatePEM() +
         root.certificatePEM();
}

namespace {

Family familyBelow(MadeIdentity root, const CertificateOptions& options) {
  MadeIdentity intermediate = makeIntermediate(root);
  MadeIdentity leaf = makeLeaf(intermediate, options);
  return {std::move(leaf), std::move(intermediate), std::move(root)};
}

}  // namespace

Family makeFamily(const CertificateOptions& options) { return familyBelow(makeRoot(), options); }

Family makeDeveloperFamily(const std::string& commonName) {
  return familyBelow(makeRoot("Apple Root CA - G3"), {.commonName = commonName});
}

MadeIdentity TLSAuthority::issue() const {
  return makeLeaf(root_, {.commonName = "localhost",
                          .organizations = {},
                          .organizationalUnit = "",
                          .codeSigning = false,
                          .alternativeNames = "DNS:localhost,IP:127.0.0.1"});
}

Data makePKCS12(const MadeIdentity& identity, const std::vector<MadeIdentity>& others,
                const PKCS12Options& options) {
  const bool old = options.encryption == PKCS12Options::Encryption::old;
  STACK_OF(X509)* further = sk_X509_new_null();
  for (const auto& other : others) sk_X509_push(further, other.native());
  const Handle<PKCS12, PKCS12_free> file(PKCS12_create_ex(
      options.passphrase ? options.passphrase->c_str() : nullptr, "identity", identity.nativeKey(),
      identity.native(), further, old ? NID_pbe_WithSHA1And3_Key_TripleDES_CBC : NID_aes_256_cbc,
      old ? NID_pbe_WithSHA1And40BitRC2_CBC : NID_aes_256_cbc, 0, 0, 0,
      libraryFor(options.encryption), nullptr));
  sk_X509_free(further);
  require(file != nullptr, "PKCS #12");
  return Data(encoded(file.get(), i2d_PKCS12));
}

namespace {

std::string sequence(const std::vector<std::string>& elements) {
  return DER::element(DER::kSequence, foundation::joined(elements, ""));
}
std::string integer(std::uint64_t number) {
  std::string bytes = bigEndian(number, 9);
  while (bytes.size() > 1 && bytes[0] == 0 && !(bytes[1] & 0x80)) bytes.erase(0, 1);
  return DER::element(DER::kInteger, bytes);
}
std::string octets(const std::string& bytes) { return DER::element(DER::kOctetString, bytes); }
/// A type with its parameters, or with its content.
std::string typed(const char* oid, const std::string& value) {
  return sequence({DER::objectIdentifier(oid), value});
}
std::string contentInfo(const char* oid, const std::string& content) {
  return typed(oid, DER::element(DER::kContext0, content));
}

const std::string kSalt = octets(std::string(8, '\0'));
/// Stands for something encrypted; long enough for a file that is recognised by a long length.
const std::string kZeros(160, '\0');

/// RFC 8018, and RFC 7914 for scrypt.
std::string slowAlgorithm(SlowPart part, std::uint64_t iterations) {
  if (part != SlowPart::keyByScrypt && part != SlowPart::keyInPEM) {
    return typed("1.2.840.113549.1.12.1.3", sequence({kSalt, integer(iterations)}));
  }
  const std::string derivation =
      part == SlowPart::keyInPEM
          ? typed("1.2.840.113549.1.5.12", sequence({kSalt, integer(iterations)}))
          : typed("1.3.6.1.4.1.11591.4.11",
                  sequence({kSalt, integer(4096), integer(1), integer(iterations / 4096)}));
  const std::string cipher = typed("2.16.840.1.101.3.4.1.42", octets(std::string(16, '\0')));
  return typed("1.2.840.113549.1.5.13", sequence({derivation, cipher}));
}

/// The contents of a PKCS #12 file (RFC 7292).
std::string slowContents(SlowPart part, const std::string& algorithm) {
  constexpr const char* kData = "1.2.840.113549.1.7.1";
  if (part == SlowPart::contents) {
    const std::string encrypted =
        sequence({DER::objectIdentifier(kData), algorithm, DER::element(0x80, kZeros)});
    return contentInfo("1.2.840.113549.1.7.6", sequence({integer(0), encrypted}));
  }
  if (part == SlowPart::integrityCheck) return {};
  const std::string key = sequence({algorithm, octets(kZeros)});
  return contentInfo(kData, octets(sequence({contentInfo("1.2.840.113549.1.12.10.1.2", key)})));
}

}  // namespace

std::string makeSlowKeyFile(SlowPart part, std::uint64_t iterations) {
  const std::string algorithm = slowAlgorithm(part, iterations);
  if (part == SlowPart::keyInPEM) {
    const std::string key = sequence({algorithm, octets(kZeros)});
    return written([&key](BIO* buffer) {
      return PEM_write_bio(buffer, PEM_STRING_PKCS8, "", foundation::openSSLBytes(bytesOf(key)),
                           std::ssize(key)) > 0;
    });
  }
  const std::string contents =
      contentInfo("1.2.840.113549.1.7.1", octets(sequence({slowContents(part, algorithm)})));
  if (part != SlowPart::integrityCheck) return sequence({integer(3), contents});
  const std::string digest = sequence(
      {typed("1.3.14.3.2.26", DER::element(DER::kNull, "")), octets(std::string(20, '\0'))});
  return sequence({integer(3), contents, sequence({digest, octets(kZeros), integer(iterations)})});
}

Dictionary ProfileOptions::dictionary() const {
  Dictionary rights{
      {"application-identifier", prefix + "." + bundleIdentifier},
      {"com.apple.developer.team-identifier", prefix},
      {"get-task-allow", getTaskAllow},
      {"keychain-access-groups", Array{prefix + ".*"}},
  };
  for (const auto& [key, value] : entitlements) rights.insert_or_assign(key, value);
  Dictionary all{
      {"AppIDName", "Example App"},
      {"ApplicationIdentifierPrefix", Array{prefix}},
      {"CreationDate", creationDate},
      {"DeveloperCertificates", Array(developerCertificates.begin(), developerCertificates.end())},
      {"Entitlements", rights},
      {"ExpirationDate", expirationDate},
      {"Name", name},
      {"TeamIdentifier", Array{prefix}},
      {"TeamName", teamName},
      {"TimeToLive", 365},
      {"UUID", uuid},
      {"Version", 1},
  };
  if (provisionedDevices) {
    all["ProvisionedDevices"] = Array(provisionedDevices->begin(), provisionedDevices->end());
  }
  if (provisionsAllDevices) all["ProvisionsAllDevices"] = true;
  return all;
}

Data makeSignedMessage(std::string_view content, const MadeIdentity& signer) {
  const BIOHandle reader = foundation::memoryReader(bytesOf(content));
  const Handle<CMS_ContentInfo, CMS_ContentInfo_free> message(
      CMS_sign(signer.native(), signer.nativeKey(), nullptr, reader.get(), CMS_BINARY));
  require(message != nullptr, "CMS signature");
  return Data(encoded(message.get(), i2d_CMS_ContentInfo));
}

Data makeBareSignature(std::string_view content, const Family& family) {
  const BIOHandle reader = foundation::memoryReader(bytesOf(content));
  constexpr unsigned int kFlags = CMS_BINARY | CMS_DETACHED | CMS_NOATTR;
  const Handle<CMS_ContentInfo, CMS_ContentInfo_free> message(
      CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags | CMS_PARTIAL));
  require(message &&
              CMS_add1_signer(message.get(), family.leaf.native(), family.leaf.nativeKey(),
                              EVP_sha256(), kFlags) != nullptr &&
              CMS_add1_cert(message.get(), family.intermediate.native()) == 1 &&
              CMS_add1_cert(message.get(), family.root.native()) == 1 &&
              CMS_final(message.get(), reader.get(), nullptr, kFlags) == 1,
          "CMS signature");
  return Data(encoded(message.get(), i2d_CMS_ContentInfo));
}

Data makeProvisioningProfile(const foundation::Dictionary& dictionary, const MadeIdentity& signer) {
  return makeSignedMessage(plist(dictionary), signer);
}

}  // namespace test
