#include "tests/support/Identities.h"

#include <array>
#include <stdexcept>

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include "foundation/base/Text.h"
#include "foundation/crypto/Digest.h"
#include "foundation/crypto/OpenSSL.h"
#include "foundation/format/PropertyList.h"

namespace test {

using foundation::BIOHandle;
using foundation::Data;
using foundation::Handle;

namespace {

using ExtensionHandle = Handle<X509_EXTENSION, X509_EXTENSION_free>;

/// Throws the library's error text unless a call succeeded.
void require(bool succeeded, const char* what) {
  if (succeeded) return;
  char reason[256];
  ERR_error_string_n(ERR_peek_last_error(), reason, sizeof reason);
  throw std::runtime_error(std::string(what) + ": " + reason);
}

BIOHandle memoryBuffer() {
  BIOHandle buffer(BIO_new(BIO_s_mem()));
  require(buffer != nullptr, "memory buffer");
  return buffer;
}

std::string contentsOf(const BIOHandle& buffer) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(buffer.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

EVP_PKEY* makeKey(KeyKind kind) {
  EVP_PKEY* key = kind == KeyKind::rsa ? EVP_RSA_gen(2048u) : EVP_EC_gen("P-256");
  require(key != nullptr, "key generation");
  return key;
}

void addName(X509_NAME* name, int nid, const std::string& value) {
  if (value.empty()) return;
  require(X509_NAME_add_entry_by_NID(name, nid, MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(value.data()),
                                     static_cast<int>(value.size()), -1, 0) == 1,
          "subject name");
}

void setSubject(X509* certificate, const CertificateOptions& options) {
  X509_NAME* name = X509_get_subject_name(certificate);
  addName(name, NID_commonName, options.commonName);
  addName(name, NID_organizationalUnitName, options.organizationalUnit);
  for (const auto& organization : options.organizations) {
    addName(name, NID_organizationName, organization);
  }
  addName(name, NID_pkcs9_emailAddress, options.emailAddress);
}

void setSerialNumber(X509* certificate) {
  std::uint64_t number = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1, "randomness");
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1) == 1, "serial");
}

void addExtension(X509* certificate, X509* issuer, int nid, const char* text) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const ExtensionHandle extension(X509V3_EXT_conf_nid(nullptr, &context, nid, text));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "extension");
}

void addMarker(X509* certificate, const std::string& oid) {
  const foundation::ASN1ObjectHandle object(OBJ_txt2obj(oid.c_str(), 1));
  require(object != nullptr, "marker");
  const Handle<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free> null(ASN1_OCTET_STRING_new());
  const unsigned char encoded[] = {0x05, 0x00};
  require(ASN1_OCTET_STRING_set(null.get(), encoded, sizeof encoded) == 1, "marker");
  const ExtensionHandle extension(
      X509_EXTENSION_create_by_OBJ(nullptr, object.get(), 0, null.get()));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "marker");
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
};

constexpr const char* kAuthority = "critical,CA:TRUE";
constexpr const char* kAuthorityUsage = "critical,keyCertSign,cRLSign";

void addExtensions(X509* certificate, X509* issuer, const Making& making) {
  for (const auto& [nid, text] : {std::pair(NID_basic_constraints, &making.basicConstraints),
                                  std::pair(NID_key_usage, &making.keyUsage)}) {
    if (!text->empty()) addExtension(certificate, issuer, nid, text->c_str());
  }
  addExtension(certificate, issuer, NID_subject_key_identifier, "hash");
  addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
  if (making.options.codeSigning) {
    addExtension(certificate, issuer, NID_ext_key_usage, "critical,codeSigning");
  }
  if (!making.options.alternativeNames.empty()) {
    addExtension(certificate, issuer, NID_subject_alt_name,
                 making.options.alternativeNames.c_str());
  }
  for (const auto& oid : making.options.markers) addMarker(certificate, oid);
}

EVP_PKEY* keyFor(const Making& making) {
  if (!making.keyHolder) return makeKey(making.options.key);
  EVP_PKEY_up_ref(making.keyHolder->nativeKey());
  return making.keyHolder->nativeKey();
}

MadeIdentity make(const Making& making) {
  MadeIdentity made(X509_new(), keyFor(making));
  X509* certificate = made.native();
  X509* issuer = making.issuer ? making.issuer->native() : certificate;
  EVP_PKEY* signingKey = making.issuer ? making.issuer->nativeKey() : made.nativeKey();
  require(X509_set_version(certificate, X509_VERSION_3) == 1, "version");
  setSerialNumber(certificate);
  X509_gmtime_adj(X509_getm_notBefore(certificate), making.options.validFrom.count());
  X509_gmtime_adj(X509_getm_notAfter(certificate), making.options.validUntil.count());
  setSubject(certificate, making.options);
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1, "issuer name");
  require(X509_set_pubkey(certificate, made.nativeKey()) == 1, "public key");
  addExtensions(certificate, issuer, making);
  require(X509_sign(certificate, signingKey, EVP_sha256()) > 0, "signature");
  return made;
}

CertificateOptions authorityOptions(const std::string& commonName, KeyKind key) {
  CertificateOptions options;
  options.commonName = commonName;
  options.organizations = {"Test Authority"};
  options.organizationalUnit = "Certification Authority";
  options.key = key;
  options.codeSigning = false;
  options.validUntil = std::chrono::hours(24 * 365 * 20);
  return options;
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

Data MadeIdentity::der() const {
  const BIOHandle buffer = memoryBuffer();
  require(i2d_X509_bio(buffer.get(), native()) == 1, "certificate to DER");
  return Data(contentsOf(buffer));
}

std::string MadeIdentity::certificatePEM() const {
  const BIOHandle buffer = memoryBuffer();
  require(PEM_write_bio_X509(buffer.get(), native()) == 1, "certificate to PEM");
  return contentsOf(buffer);
}

std::string MadeIdentity::keyPEM(std::optional<std::string> passphrase) const {
  const BIOHandle buffer = memoryBuffer();
  const EVP_CIPHER* const cipher = passphrase ? EVP_aes_256_cbc() : nullptr;
  const std::string phrase = passphrase.value_or("");
  const int written =
      PEM_write_bio_PKCS8PrivateKey(buffer.get(), nativeKey(), cipher, phrase.data(),
                                    static_cast<int>(phrase.size()), nullptr, nullptr);
  require(written == 1, "key to PEM");
  return contentsOf(buffer);
}

std::string MadeIdentity::oldKeyPEM(const std::string& passphrase) const {
  const BIOHandle buffer = memoryBuffer();
  std::string phrase = passphrase;
  const int written = PEM_write_bio_PrivateKey_traditional(
      buffer.get(), nativeKey(), EVP_aes_256_cbc(), reinterpret_cast<unsigned char*>(phrase.data()),
      static_cast<int>(phrase.size()), nullptr, nullptr);
  require(written == 1, "key to PEM");
  return contentsOf(buffer);
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
  return make({.options = authorityOptions(commonName, key),
               .basicConstraints = kAuthority,
               .keyUsage = kAuthorityUsage});
}

MadeIdentity makeIntermediate(const MadeIdentity& root, const std::string& commonName,
                              KeyKind key) {
  Making making{.options = authorityOptions(commonName, key),
                .basicConstraints = kAuthority,
                .keyUsage = kAuthorityUsage,
                .issuer = &root};
  making.options.markers = {std::string(kIntermediateMarker)};
  return make(making);
}

MadeIdentity makeIssuer(const MadeIdentity& root, const std::string& basicConstraints,
                        const std::string& keyUsage) {
  return make({.options = authorityOptions("Issuer", KeyKind::p256),
               .basicConstraints = basicConstraints,
               .keyUsage = keyUsage,
               .issuer = &root});
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
  addExtension(certificate, issuer.native(), NID_authority_key_identifier, "keyid:always");
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer.native())) == 1,
          "issuer name");
  require(X509_sign(certificate, issuer.nativeKey(), EVP_sha256()) > 0, "signature");
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
  const BIOHandle buffer = memoryBuffer();
  require(i2d_PKCS12_bio(buffer.get(), file.get()) == 1, "PKCS #12 to DER");
  return Data(contentsOf(buffer));
}

namespace {

using AlgorithmHandle = Handle<X509_ALGOR, X509_ALGOR_free>;

AlgorithmHandle slowAlgorithm(SlowPart part, std::uint64_t iterations) {
  unsigned char salt[8] = {};
  const int count = static_cast<int>(iterations);
  if (part == SlowPart::keyByScrypt) {
    return AlgorithmHandle(PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), salt, sizeof salt, nullptr,
                                                 4096, 1, iterations / 4096));
  }
  if (part == SlowPart::keyInPEM) {
    return AlgorithmHandle(
        PKCS5_pbe2_set_iv(EVP_aes_256_cbc(), count, salt, sizeof salt, nullptr, -1));
  }
  return AlgorithmHandle(
      PKCS5_pbe_set(NID_pbe_WithSHA1And3_Key_TripleDES_CBC, count, salt, sizeof salt));
}

/// Stands for something encrypted; long enough for a file that is recognised by a long length.
constexpr std::array<unsigned char, 160> kZeros{};

/// An encrypted key of zero bytes.
X509_SIG* slowKey(SlowPart part, std::uint64_t iterations) {
  X509_SIG* key = X509_SIG_new();
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* content = nullptr;
  X509_SIG_getm(key, &algorithm, &content);
  const AlgorithmHandle made = slowAlgorithm(part, iterations);
  require(made && X509_ALGOR_copy(algorithm, made.get()) == 1, "slow algorithm");
  ASN1_OCTET_STRING_set(content, kZeros.data(), kZeros.size());
  return key;
}

PKCS7* slowContents(std::uint64_t iterations) {
  PKCS7* content = PKCS7_new();
  PKCS7_set_type(content, NID_pkcs7_encrypted);
  PKCS7_ENC_CONTENT* encrypted = content->d.encrypted->enc_data;
  X509_ALGOR_copy(encrypted->algorithm, slowAlgorithm(SlowPart::contents, iterations).get());
  encrypted->enc_data = ASN1_OCTET_STRING_new();
  ASN1_OCTET_STRING_set(encrypted->enc_data, kZeros.data(), kZeros.size());
  return content;
}

}  // namespace

std::string makeSlowKeyFile(SlowPart part, std::uint64_t iterations) {
  const BIOHandle buffer = memoryBuffer();
  if (part == SlowPart::keyInPEM) {
    const Handle<X509_SIG, X509_SIG_free> key(slowKey(part, iterations));
    require(PEM_write_bio_PKCS8(buffer.get(), key.get()) == 1, "slow key");
    return contentsOf(buffer);
  }
  STACK_OF(PKCS7)* contents = sk_PKCS7_new_null();
  if (part == SlowPart::contents) sk_PKCS7_push(contents, slowContents(iterations));
  if (part == SlowPart::key || part == SlowPart::keyByScrypt) {
    STACK_OF(PKCS12_SAFEBAG)* bags = sk_PKCS12_SAFEBAG_new_null();
    sk_PKCS12_SAFEBAG_push(bags, PKCS12_SAFEBAG_create0_pkcs8(slowKey(part, iterations)));
    require(PKCS12_add_safe(&contents, bags, -1, 0, nullptr) == 1, "slow bag");
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
  }
  const Handle<PKCS12, PKCS12_free> file(PKCS12_add_safes(contents, 0));
  sk_PKCS7_pop_free(contents, PKCS7_free);
  if (part == SlowPart::integrityCheck) {
    PKCS12_setup_mac(file.get(), static_cast<int>(iterations), nullptr, 160, EVP_sha1());
  }
  require(i2d_PKCS12_bio(buffer.get(), file.get()) == 1, "slow PKCS #12");
  return contentsOf(buffer);
}

foundation::Dictionary ProfileOptions::dictionary() const {
  foundation::Dictionary rights{
      {"application-identifier", prefix + "." + bundleIdentifier},
      {"com.apple.developer.team-identifier", prefix},
      {"get-task-allow", getTaskAllow},
      {"keychain-access-groups", foundation::Array{prefix + ".*"}},
  };
  for (const auto& [key, value] : entitlements) rights.insert_or_assign(key, value);
  foundation::Dictionary all{
      {"AppIDName", "Example App"},
      {"ApplicationIdentifierPrefix", foundation::Array{prefix}},
      {"CreationDate", creationDate},
      {"DeveloperCertificates",
       foundation::Array(developerCertificates.begin(), developerCertificates.end())},
      {"Entitlements", rights},
      {"ExpirationDate", expirationDate},
      {"Name", name},
      {"TeamIdentifier", foundation::Array{prefix}},
      {"TeamName", teamName},
      {"TimeToLive", 365},
      {"UUID", uuid},
      {"Version", 1},
  };
  if (provisionedDevices) {
    all["ProvisionedDevices"] =
        foundation::Array(provisionedDevices->begin(), provisionedDevices->end());
  }
  if (provisionsAllDevices) all["ProvisionsAllDevices"] = true;
  return all;
}

Data makeSignedMessage(std::string_view content, const MadeIdentity& signer) {
  const BIOHandle reader = foundation::memoryReader(foundation::bytesOf(content));
  const Handle<CMS_ContentInfo, CMS_ContentInfo_free> message(
      CMS_sign(signer.native(), signer.nativeKey(), nullptr, reader.get(), CMS_BINARY));
  require(message != nullptr, "CMS signature");
  const BIOHandle buffer = memoryBuffer();
  require(i2d_CMS_bio(buffer.get(), message.get()) == 1, "CMS to DER");
  return Data(contentsOf(buffer));
}

Data makeBareSignature(std::string_view content, const Family& family) {
  const BIOHandle reader = foundation::memoryReader(foundation::bytesOf(content));
  constexpr unsigned int kFlags = CMS_BINARY | CMS_DETACHED | CMS_NOATTR;
  const Handle<CMS_ContentInfo, CMS_ContentInfo_free> message(
      CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags | CMS_PARTIAL));
  require(message && CMS_add1_signer(message.get(), family.leaf.native(), family.leaf.nativeKey(),
                                     EVP_sha256(), kFlags) != nullptr,
          "CMS signer");
  for (const auto* issuer : {&family.intermediate, &family.root}) {
    require(CMS_add1_cert(message.get(), issuer->native()) == 1, "CMS certificate");
  }
  require(CMS_final(message.get(), reader.get(), nullptr, kFlags) == 1, "CMS signature");
  const BIOHandle buffer = memoryBuffer();
  require(i2d_CMS_bio(buffer.get(), message.get()) == 1, "CMS to DER");
  return Data(contentsOf(buffer));
}

Data makeProvisioningProfile(const foundation::Dictionary& dictionary, const MadeIdentity& signer) {
  const auto xml = foundation::PropertyList::xml(dictionary);
  if (!xml) throw std::runtime_error(xml.error().localizedDescription());
  return makeSignedMessage(*xml, signer);
}

}  // namespace test
