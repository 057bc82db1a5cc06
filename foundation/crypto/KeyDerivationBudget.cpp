#include "foundation/crypto/private/KeyDerivationBudget.h"

#include <limits>

#include "foundation/base/Format.h"
#include "foundation/crypto/private/KeychainFiles.h"

namespace foundation {

namespace {

using PBEHandle = Handle<PBEPARAM, PBEPARAM_free>;
using PBE2Handle = Handle<PBE2PARAM, PBE2PARAM_free>;
using PBKDF2Handle = Handle<PBKDF2PARAM, PBKDF2PARAM_free>;
using ScryptHandle = Handle<SCRYPT_PARAMS, SCRYPT_PARAMS_free>;

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

/// The greatest number for what is negative or above it.
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

std::uint64_t roundsOfPBES2(const X509_ALGOR* algorithm) {
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

std::uint64_t roundsOf(const X509_ALGOR* algorithm) {
  if (OBJ_obj2nid(algorithm->algorithm) == NID_pbes2) return roundsOfPBES2(algorithm);
  // All the others have these; of an algorithm without a passphrase they mean nothing.
  const auto one = parameters<PBEHandle>(algorithm, ASN1_ITEM_rptr(PBEPARAM));
  return one ? numberOf(one->iter) : 0;
}

}  // namespace

bool KeyDerivationBudget::add(const ASN1_INTEGER* rounds) { return addCount(numberOf(rounds)); }

bool KeyDerivationBudget::add(const X509_ALGOR* algorithm) { return addCount(roundsOf(algorithm)); }

bool KeyDerivationBudget::addCount(std::uint64_t rounds) {
  if (rounds > kMaximum - sum_) {
    error_ =
        makeError(kKeychainErrorDomain, -1,
                  format("asks for %llu rounds of encryption; at most %llu are done for one file",
                         rounds, kMaximum));
    return false;
  }
  if (rounds > leftInRun_) {
    error_ = makeError(
        kKeychainErrorDomain, -1,
        format("asks for %llu rounds of encryption, more than are left for all key files of a run",
               rounds));
    return false;
  }
  leftInRun_ -= rounds;
  sum_ += rounds;
  return true;
}

}  // namespace foundation
