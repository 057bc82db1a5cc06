#include "foundation/crypto/private/KeyDerivationBudget.h"

#include <limits>

#include "foundation/crypto/private/KeychainFiles.h"

namespace foundation {

namespace {

using PBEHandle = Handle<PBEPARAM, PBEPARAM_free>;
using PBE2Handle = Handle<PBE2PARAM, PBE2PARAM_free>;
using PBKDF2Handle = Handle<PBKDF2PARAM, PBKDF2PARAM_free>;
using ScryptHandle = Handle<SCRYPT_PARAMS, SCRYPT_PARAMS_free>;

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

/// `kMost` for a negative or larger number.
std::uint64_t numberOf(const ASN1_INTEGER* number) {
  std::uint64_t result = 0;
  return ASN1_INTEGER_get_uint64(&result, number) == 1 ? result : kMost;
}

std::uint64_t product(std::uint64_t a, std::uint64_t b) {
  return b && a > kMost / b ? kMost : a * b;
}

template <class Owner>
Owner parameters(const X509_ALGOR* algorithm, const ASN1_ITEM* form) {
  return Owner(
      static_cast<typename Owner::pointer>(ASN1_TYPE_unpack_sequence(form, algorithm->parameter)));
}

std::uint64_t iterationsOfPBES2(const X509_ALGOR* algorithm) {
  const auto both = parameters<PBE2Handle>(algorithm, ASN1_ITEM_rptr(PBE2PARAM));
  if (!both) return 0;
  const int derivation = OBJ_obj2nid(both->keyfunc->algorithm);
  if (derivation == NID_id_pbkdf2) {
    const auto one = parameters<PBKDF2Handle>(both->keyfunc, ASN1_ITEM_rptr(PBKDF2PARAM));
    return one ? numberOf(one->iter) : 0;
  }
  if (derivation != NID_id_scrypt) return 0;
  const auto one = parameters<ScryptHandle>(both->keyfunc, ASN1_ITEM_rptr(SCRYPT_PARAMS));
  if (!one) return 0;
  return product(product(numberOf(one->costParameter), numberOf(one->blockSize)),
                 numberOf(one->parallelizationParameter));
}

std::uint64_t iterationsOf(const X509_ALGOR* algorithm) {
  if (OBJ_obj2nid(algorithm->algorithm) == NID_pbes2) return iterationsOfPBES2(algorithm);
  // The parameters of every other password-based scheme.
  const auto one = parameters<PBEHandle>(algorithm, ASN1_ITEM_rptr(PBEPARAM));
  return one ? numberOf(one->iter) : 0;
}

}  // namespace

bool KeyDerivationBudget::charge(const ASN1_INTEGER* iterations) {
  return chargeCount(numberOf(iterations));
}

bool KeyDerivationBudget::charge(const X509_ALGOR* algorithm) {
  return chargeCount(iterationsOf(algorithm));
}

bool KeyDerivationBudget::chargeCount(std::uint64_t iterations) {
  const std::string demand =
      "asks for " + std::to_string(iterations) + " key derivation iterations";
  if (iterations > kMaximum - sum_) {
    error_ = keychainError(demand + "; at most " + std::to_string(kMaximum) +
                           " are allowed for one file");
    return false;
  }
  if (iterations > leftInRun_) {
    error_ = keychainError(demand + ", more than are left for all key files of a run");
    return false;
  }
  leftInRun_ -= iterations;
  sum_ += iterations;
  return true;
}

}  // namespace foundation
