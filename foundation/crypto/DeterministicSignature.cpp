#include "foundation/crypto/private/DeterministicSignature.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/hmac.h>
#include <openssl/obj_mac.h>

#include "foundation/crypto/OpenSSL.h"

namespace foundation {

namespace {

using Number = Handle<BIGNUM, BN_clear_free>;
using Context = Handle<BN_CTX, BN_CTX_free>;
using Group = Handle<EC_GROUP, EC_GROUP_free>;
using Point = Handle<EC_POINT, EC_POINT_free>;
using SignatureHandle = Handle<ECDSA_SIG, ECDSA_SIG_free>;

constexpr std::size_t kSize = 32;
/// One attempt in 2^32 fails, so more than a few mean that something is broken.
constexpr int kMostAttempts = 16;

/// Wiped when destroyed.
template <std::size_t size = kSize>
struct Secret {
  std::array<unsigned char, size> bytes{};
  ~Secret() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

Number numberFrom(const unsigned char* bytes) {
  return Number(BN_bin2bn(bytes, static_cast<int>(kSize), nullptr));
}

bool isOnP256(EVP_PKEY* key) {
  char name[32] = {};
  std::size_t size = 0;
  return EVP_PKEY_get_base_id(key) == EVP_PKEY_EC &&
         EVP_PKEY_get_group_name(key, name, sizeof name, &size) == 1 &&
         std::strcmp(name, "prime256v1") == 0;
}

/// The generator of RFC 6979, section 3.2; "key" and "value" are its K and V.
class NonceGenerator {
 public:
  /// `seed`: the private key, then the message's digest reduced by the group's order.
  explicit NonceGenerator(const Secret<2 * kSize>& seed) {
    value_.bytes.fill(1);
    update(0, seed.bytes);
    update(1, seed.bytes);
  }

  /// The next candidate; null if OpenSSL fails.
  Number next() {
    hmac(value_.bytes, value_);
    return isGood_ ? numberFrom(value_.bytes.data()) : nullptr;
  }

  /// Rejects the last candidate.
  void skip() { update(0, {}); }

 private:
  void update(unsigned char step, std::span<const unsigned char> seed) {
    Secret<kSize + 1 + 2 * kSize> input;
    std::ranges::copy(value_.bytes, input.bytes.begin());
    input.bytes[kSize] = step;
    std::ranges::copy(seed, input.bytes.begin() + kSize + 1);
    hmac(std::span(input.bytes).first(kSize + 1 + seed.size()), key_);
    hmac(value_.bytes, value_);
  }

  void hmac(std::span<const unsigned char> data, Secret<>& out) {
    Secret result;
    isGood_ = isGood_ && HMAC(EVP_sha256(), key_.bytes.data(), static_cast<int>(kSize), data.data(),
                              data.size(), result.bytes.data(), nullptr);
    out = result;
  }

  Secret<> key_;
  Secret<> value_;
  bool isGood_ = true;
};

/// Signs with a given nonce.
class Signer {
 public:
  explicit Signer(Number secret) : secret_(std::move(secret)) {
    BN_set_flags(secret_.get(), BN_FLG_CONSTTIME);
  }

  [[nodiscard]] bool isReady() const { return group_ && context_ && order() != nullptr; }
  [[nodiscard]] const BIGNUM* order() const { return EC_GROUP_get0_order(group_.get()); }

  /// Null for a nonce that gives no signature.
  SignatureHandle sign(const BIGNUM* message, BIGNUM* nonce) {
    BN_set_flags(nonce, BN_FLG_CONSTTIME);
    const Point point(EC_POINT_new(group_.get()));
    Number r(BN_new());
    Number s(BN_secure_new());
    const Number inverse(BN_secure_new());
    const bool done =
        point && r && s && inverse &&
        EC_POINT_mul(group_.get(), point.get(), nonce, nullptr, nullptr, context_.get()) == 1 &&
        EC_POINT_get_affine_coordinates(group_.get(), point.get(), r.get(), nullptr,
                                        context_.get()) == 1 &&
        BN_nnmod(r.get(), r.get(), order(), context_.get()) == 1 &&
        BN_mod_inverse(inverse.get(), nonce, order(), context_.get()) != nullptr &&
        BN_mod_mul(s.get(), r.get(), secret_.get(), order(), context_.get()) == 1 &&
        BN_mod_add(s.get(), s.get(), message, order(), context_.get()) == 1 &&
        BN_mod_mul(s.get(), s.get(), inverse.get(), order(), context_.get()) == 1;
    if (!done || BN_is_zero(r.get()) || BN_is_zero(s.get())) return nullptr;
    SignatureHandle signature(ECDSA_SIG_new());
    // On success it owns both numbers.
    if (signature && ECDSA_SIG_set0(signature.get(), r.get(), s.get()) == 1) {
      static_cast<void>(r.release());
      static_cast<void>(s.release());
    }
    return signature;
  }

 private:
  Group group_{EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1)};
  Context context_{BN_CTX_secure_new()};
  Number secret_;
};

}  // namespace

std::optional<std::string> deterministicSignature(const SHA256Digest& digest, EVP_PKEY* key) {
  BIGNUM* raw = nullptr;
  if (!isOnP256(key) || EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_PRIV_KEY, &raw) != 1) {
    return std::nullopt;
  }
  Secret<2 * kSize> seed;
  Number scalar(raw);
  if (BN_bn2binpad(raw, seed.bytes.data(), static_cast<int>(kSize)) < 0) return std::nullopt;
  const Number message = numberFrom(reinterpret_cast<const unsigned char*>(digest.data()));
  Signer signer(std::move(scalar));
  if (!message || !signer.isReady()) return std::nullopt;
  // The order has as many bits as the digest, so one subtraction reduces it.
  if (BN_cmp(message.get(), signer.order()) >= 0) {
    BN_sub(message.get(), message.get(), signer.order());
  }
  BN_bn2binpad(message.get(), seed.bytes.data() + kSize, static_cast<int>(kSize));
  NonceGenerator nonces(seed);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const Number nonce = nonces.next();
    if (!nonce) break;
    const bool isInRange = !BN_is_zero(nonce.get()) && BN_cmp(nonce.get(), signer.order()) < 0;
    if (isInRange) {
      if (const auto signature = signer.sign(message.get(), nonce.get())) {
        auto bytes = encoded(signature.get(), i2d_ECDSA_SIG);
        return bytes.empty() ? std::nullopt : std::optional(std::move(bytes));
      }
    }
    nonces.skip();
  }
  return std::nullopt;
}

}  // namespace foundation
