#include "tests/support/TLSCertificates.h"

#include <atomic>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include "tests/support/TLSServerContext.h"

namespace test {

namespace {

using Key = foundation::Handle<EVP_PKEY, EVP_PKEY_free>;
using CertificateHandle = foundation::Handle<X509, X509_free>;
using Extension = foundation::Handle<X509_EXTENSION, X509_EXTENSION_free>;
using Memory = foundation::Handle<BIO, BIO_free_all>;

constexpr long kDay = 24 * 60 * 60;

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(std::string("cannot make a test certificate: ") + what);
}

Memory memory() { return Memory(BIO_new(BIO_s_mem())); }

std::string textOf(const Memory& bio) {
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

std::string pem(X509* certificate) {
  const Memory bio = memory();
  require(PEM_write_bio_X509(bio.get(), certificate) == 1, "PEM");
  return textOf(bio);
}

std::string pem(EVP_PKEY* key) {
  const Memory bio = memory();
  require(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "PEM");
  return textOf(bio);
}

std::string newName() {
  static std::atomic<int> count = 0;
  return "sendoff test authority " + std::to_string(++count);
}

Key newKey() { return Key(EVP_EC_gen("P-256")); }

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value);
}

CertificateHandle blankCertificate(const std::string& name, EVP_PKEY* key, long validSeconds) {
  CertificateHandle certificate(X509_new());
  std::uint32_t serial = 0;
  RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -30 * kDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validSeconds);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  return certificate;
}

}  // namespace

struct TLSAuthority::State {
  Key key;
  CertificateHandle certificate;
};

TLSAuthority::TLSAuthority() : state_(std::make_unique<State>()) {
  state_->key = newKey();
  state_->certificate = blankCertificate(newName(), state_->key.get(), 300 * kDay);
  X509* const own = state_->certificate.get();
  X509_set_issuer_name(own, X509_get_subject_name(own));
  addExtension(own, own, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(own, own, NID_subject_key_identifier, "hash");
  require(X509_sign(own, state_->key.get(), EVP_sha256()) > 0, "signature");
}

TLSAuthority::~TLSAuthority() = default;

std::string TLSAuthority::certificate() const { return pem(state_->certificate.get()); }

TLSIdentity TLSAuthority::issue(const Leaf& leaf) const {
  const Key key = newKey();
  const auto certificate = blankCertificate(leaf.hostName, key.get(), leaf.expiresAfterDays * kDay);
  X509* const issuer = state_->certificate.get();
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
  std::string names = "DNS:" + leaf.hostName;
  if (leaf.hostName == "localhost") names += ",IP:127.0.0.1";
  addExtension(certificate.get(), issuer, NID_subject_alt_name, names.c_str());
  require(X509_sign(certificate.get(), state_->key.get(), EVP_sha256()) > 0, "signature");
  return {pem(certificate.get()), pem(key.get())};
}

TLSServerContext makeServerContext(const TLSIdentity& identity) {
  TLSServerContext context(SSL_CTX_new(TLS_server_method()));
  require(context != nullptr, "context");
  const Memory chain(BIO_new_mem_buf(identity.certificateChain.data(),
                                     static_cast<int>(identity.certificateChain.size())));
  const CertificateHandle certificate(PEM_read_bio_X509(chain.get(), nullptr, nullptr, nullptr));
  const Memory keyText(
      BIO_new_mem_buf(identity.privateKey.data(), static_cast<int>(identity.privateKey.size())));
  const Key key(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr));
  require(SSL_CTX_use_certificate(context.get(), certificate.get()) == 1, "certificate");
  require(SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1, "key");
  SSL_CTX_set_mode(context.get(), SSL_MODE_AUTO_RETRY);
  return context;
}

}  // namespace test
