#include <openssl/objects.h>
#include <openssl/provider.h>

#include "foundation/crypto/OpenSSL.h"
#include "foundation/crypto/private/KeyDerivationBudget.h"
#include "foundation/crypto/private/KeychainFiles.h"

namespace foundation {

namespace {

using PKCS12Handle = Handle<PKCS12, PKCS12_free>;

void freeContents(STACK_OF(PKCS7) * contents) { sk_PKCS7_pop_free(contents, PKCS7_free); }
void freeBags(STACK_OF(PKCS12_SAFEBAG) * bags) {
  sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
}
using ContentsHandle = Handle<STACK_OF(PKCS7), freeContents>;
using BagsHandle = Handle<STACK_OF(PKCS12_SAFEBAG), freeBags>;

/// Bags may contain bags; no known writer nests them deeper.
constexpr int kMaximumNesting = 8;

/// For OpenSSL, a null pointer means "without a passphrase", which differs from an empty one.
struct PassphraseView {
  const char* text = nullptr;
  int size = 0;
};

/// Reads a file with one passphrase. Wherever that fails, the reason is in the budget or in
/// OpenSSL's error queue.
class PKCS12Reader {
 public:
  PKCS12Reader(PassphraseView passphrase, KeyDerivationBudget& budget)
      : passphrase_(passphrase), budget_(budget) {}

  /// Absent for a wrong passphrase, a damaged file, or an exceeded budget.
  std::optional<KeychainContents> read(PKCS12* file) {
    if (!isWhole(file)) return std::nullopt;
    const ContentsHandle contents(PKCS12_unpack_authsafes(file));
    if (!contents) return std::nullopt;
    for (int i = 0; i < sk_PKCS7_num(contents.get()); ++i) {
      const BagsHandle bags = bagsOf(sk_PKCS7_value(contents.get(), i));
      if (!addBags(bags.get(), 0)) return std::nullopt;
    }
    return std::move(found_);
  }

 private:
  bool isWhole(PKCS12* file) {
    if (!PKCS12_mac_present(file)) return true;
    const ASN1_INTEGER* iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, file);
    // Absent means one iteration.
    if (iterations && !budget_.charge(iterations)) return false;
    return PKCS12_verify_mac(file, passphrase_.text, passphrase_.size) == 1;
  }

  /// The bags of plain or encrypted content.
  BagsHandle bagsOf(PKCS7* content) {
    if (PKCS7_type_is_data(content)) return BagsHandle(PKCS12_unpack_p7data(content));
    if (!PKCS7_type_is_encrypted(content)) return nullptr;
    const PKCS7_ENCRYPT* encrypted = content->d.encrypted;
    if (!encrypted || !budget_.charge(encrypted->enc_data->algorithm)) return nullptr;
    return BagsHandle(PKCS12_unpack_p7encdata(content, passphrase_.text, passphrase_.size));
  }

  bool addBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int depth) {
    if (!bags || depth > kMaximumNesting) return false;
    for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
      if (!addBag(sk_PKCS12_SAFEBAG_value(bags, i), depth)) return false;
    }
    return true;
  }

  bool addBag(const PKCS12_SAFEBAG* bag, int depth) {
    switch (PKCS12_SAFEBAG_get_nid(bag)) {
      case NID_keyBag:
        return addKey(PKCS12_SAFEBAG_get0_p8inf(bag));
      case NID_pkcs8ShroudedKeyBag:
        return addEncryptedKey(bag);
      case NID_certBag:
        return PKCS12_SAFEBAG_get_bag_nid(bag) != NID_x509Certificate || addCertificate(bag);
      case NID_safeContentsBag:
        return addBags(PKCS12_SAFEBAG_get0_safes(bag), depth + 1);
      default:
        return true;
    }
  }

  bool addKey(const PKCS8_PRIV_KEY_INFO* encoded) {
    EVP_PKEY* key = encoded ? EVP_PKCS82PKEY(encoded) : nullptr;
    if (key) found_.keys.push_back(PrivateKey::adopt(key));
    return key != nullptr;
  }

  bool addEncryptedKey(const PKCS12_SAFEBAG* bag) {
    const X509_ALGOR* algorithm = nullptr;
    X509_SIG_get0(PKCS12_SAFEBAG_get0_pkcs8(bag), &algorithm, nullptr);
    if (!budget_.charge(algorithm)) return false;
    const PKCS8Handle encoded(
        PKCS12_decrypt_skey_ex(bag, passphrase_.text, passphrase_.size, legacyLibrary(), nullptr));
    return addKey(encoded.get());
  }

  bool addCertificate(const PKCS12_SAFEBAG* bag) {
    X509* certificate = PKCS12_SAFEBAG_get1_cert(bag);
    if (certificate) found_.certificates.push_back(Certificate::adopt(certificate));
    return certificate != nullptr;
  }

  PassphraseView passphrase_;
  KeyDerivationBudget& budget_;
  KeychainContents found_;
};

PKCS12Handle decoded(Bytes bytes) {
  const unsigned char* position = openSSLBytes(bytes);
  // Whatever is decrypted in this object uses its library context.
  PKCS12* file = PKCS12_init_ex(NID_pkcs7_data, legacyLibrary(), nullptr);
  if (!d2i_PKCS12(&file, &position, static_cast<long>(bytes.size()))) {
    PKCS12_free(file);
    return nullptr;
  }
  return PKCS12Handle(file);
}

}  // namespace

OSSL_LIB_CTX* legacyLibrary() {
  static OSSL_LIB_CTX* const library = [] {
    OSSL_LIB_CTX* made = OSSL_LIB_CTX_new();
    OSSL_PROVIDER_load(made, "default");
    OSSL_PROVIDER_load(made, "legacy");
    return made;
  }();
  return library;
}

Result<KeychainContents> readPKCS12(Bytes bytes, const std::optional<Passphrase>& passphrase,
                                    std::uint64_t& iterationsLeft) {
  const OpenSSLErrorScope errors;
  const PKCS12Handle file = decoded(bytes);
  if (!file) return keychainError("not a PKCS #12 file: " + OpenSSLErrorScope::reason());
  std::vector<PassphraseView> tries{{}, {"", 0}};
  if (passphrase) {
    const std::string& text = passphrase->text();
    tries = {PassphraseView{text.c_str(), static_cast<int>(text.size())}};
  }
  for (const PassphraseView tried : tries) {
    KeyDerivationBudget budget(iterationsLeft);
    if (auto contents = PKCS12Reader(tried, budget).read(file.get())) return *std::move(contents);
    if (budget.error()) return *budget.error();
  }
  return lockedError(passphrase);
}

}  // namespace foundation
