#include "tests/support/Identities.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "foundation/crypto/OpenSSL.h"
#include "tests/support/Test.h"

namespace test {

using foundation::BIOHandle;
using foundation::PKeyHandle;

namespace {

void require(bool succeeded, const char* what) {
  if (!succeeded) throw std::runtime_error(what + (": " + foundation::OpenSSLErrorScope::reason()));
}

PKeyHandle keyFor(const CertificateOptions& options) {
  if (!options.keyHolder) {
    return PKeyHandle(options.key == KeyKind::rsa ? EVP_RSA_gen(2048u) : EVP_EC_gen("P-256"));
  }
  EVP_PKEY* key = options.keyHolder->identity().privateKey.native();
  EVP_PKEY_up_ref(key);
  return PKeyHandle(key);
}

void setSubject(X509* certificate, const CertificateOptions& options) {
  const auto add = [name = X509_get_subject_name(certificate)](const char* field,
                                                               const std::string& value) {
    if (value.empty()) return;
    const auto* bytes = reinterpret_cast<const unsigned char*>(value.c_str());
    require(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, bytes, -1, -1, 0) == 1, field);
  };
  add("CN", options.commonName);
  add("OU", options.organizationalUnit);
  for (const auto& organization : options.organizations) add("O", organization);
}

void addExtensions(X509* certificate, X509* issuer, const CertificateOptions& options) {
  std::string lines =
      options.extensions + "subjectKeyIdentifier=hash\n" + "authorityKeyIdentifier=keyid:always\n";
  for (const auto& oid : options.markers) lines += oid + "=ASN1:NULL\n";
  const foundation::Handle<CONF, NCONF_free> configuration(NCONF_new(nullptr));
  const BIOHandle reader = foundation::memoryReader(bytesOf(lines));
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509V3_set_nconf(&context, configuration.get());
  require(NCONF_load_bio(configuration.get(), reader.get(), nullptr) == 1 &&
              X509V3_EXT_add_nconf(configuration.get(), &context, "default", certificate) == 1,
          "extensions");
}

/// Signed by itself without an issuer.
MadeIdentity make(const CertificateOptions& options, const MadeIdentity* issuer) {
  static std::uint64_t serial = 0;
  PKeyHandle key = keyFor(options);
  foundation::X509Handle made(X509_new());
  X509* certificate = made.get();
  X509* signer = issuer ? issuer->certificate().native() : certificate;
  require(X509_set_version(certificate, X509_VERSION_3) == 1 &&
              ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), ++serial) == 1 &&
              X509_gmtime_adj(X509_getm_notBefore(certificate), options.validFrom.count()) &&
              X509_gmtime_adj(X509_getm_notAfter(certificate), options.validUntil.count()) &&
              X509_set_pubkey(certificate, key.get()) == 1,
          "certificate");
  setSubject(certificate, options);
  addExtensions(certificate, signer, options);
  EVP_PKEY* signingKey = issuer ? issuer->identity().privateKey.native() : key.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1 &&
              X509_sign(certificate, signingKey, EVP_sha256()) > 0,
          "signature");
  return MadeIdentity({foundation::Certificate::adopt(made.release()),
                       foundation::PrivateKey::adopt(key.release())});
}

CertificateOptions authority(const std::string& commonName, CertificateOptions options) {
  options.commonName = commonName;
  options.organizations = {"Test Authority"};
  options.organizationalUnit = "Certification Authority";
  options.extensions = "basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n";
  return options;
}

template <class Write>
std::string written(const Write& write) {
  const BIOHandle buffer(BIO_new(BIO_s_mem()));
  require(write(buffer.get()) == 1, "PEM");
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(buffer.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

}  // namespace

std::string MadeIdentity::certificatePEM() const {
  return written([this](BIO* out) { return PEM_write_bio_X509(out, certificate().native()); });
}

std::string MadeIdentity::keyPEM() const {
  return written([this](BIO* out) {
    return PEM_write_bio_PKCS8PrivateKey(out, identity_.privateKey.native(), nullptr, nullptr, 0,
                                         nullptr, nullptr);
  });
}

std::string MadeIdentity::sha1() const { return foundation::uppercaseHex(certificate().sha1()); }

MadeIdentity makeLeaf(const MadeIdentity& issuer, const CertificateOptions& options) {
  return make(options, &issuer);
}

MadeIdentity makeRoot(const std::string& commonName) {
  return make(authority(commonName, {}), nullptr);
}

MadeIdentity makeIntermediate(const MadeIdentity& root, const std::string& commonName,
                              const CertificateOptions& keyOptions) {
  CertificateOptions options = authority(commonName, keyOptions);
  options.markers = {std::string(kIntermediateMarker)};
  return make(options, &root);
}

std::string Family::issuersPEM() const {
  return intermediate.certificatePEM() + root.certificatePEM();
}
std::string Family::pem() const { return leaf.keyPEM() + leaf.certificatePEM() + issuersPEM(); }
std::vector<foundation::Certificate> Family::chain() const {
  return {leaf.certificate(), intermediate.certificate(), root.certificate()};
}

Family makeFamily(const CertificateOptions& options, const MadeIdentity& root) {
  const MadeIdentity intermediate = makeIntermediate(root);
  return {makeLeaf(intermediate, options), intermediate, root};
}

Data makeSignedMessage(std::string_view content, const MadeIdentity& signer,
                       const std::vector<std::string>& options,
                       const std::string& certificatesPEM) {
  const TemporaryFolder folder;
  const std::string identity =
      folder.write("signer.pem", signer.certificatePEM() + signer.keyPEM());
  std::vector<std::string> command = {
      "openssl",  "cms",    "-sign", "-binary",
      "-outform", "DER",    "-in",   folder.write("content", content),
      "-signer",  identity, "-out",  folder / "message"};
  command.insert(command.end(), options.begin(), options.end());
  if (!certificatesPEM.empty()) {
    command.insert(command.end(), {"-certfile", folder.write("others.pem", certificatesPEM)});
  }
  outputOf(command);
  return Data(contentsOf(folder / "message"));
}

Data makeBareSignature(std::string_view content, const Family& family) {
  return makeSignedMessage(content, family.leaf, {"-noattr"}, family.issuersPEM());
}

Data makeProvisioningProfile(const Dictionary& dictionary, const MadeIdentity& signer) {
  return makeSignedMessage(plist(dictionary), signer);
}

Dictionary ProfileOptions::dictionary() const {
  const std::string prefix = "ABCDE12345";
  return {
      {"AppIDName", "Example App"},
      {"ApplicationIdentifierPrefix", Array{prefix}},
      {"CreationDate", creationDate},
      {"DeveloperCertificates", Array(developerCertificates.begin(), developerCertificates.end())},
      {"Entitlements", Dictionary{{"application-identifier", prefix + "." + bundleIdentifier},
                                  {"com.apple.developer.team-identifier", prefix},
                                  {"get-task-allow", false},
                                  {"keychain-access-groups", Array{prefix + ".*"}}}},
      {"ExpirationDate", Date(std::chrono::sys_days{std::chrono::year{2045} / 3 / 1})},
      {"Name", name},
      {"TeamIdentifier", Array{prefix}},
      {"UUID", uuid},
  };
}

}  // namespace test
