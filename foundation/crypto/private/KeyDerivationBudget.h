#pragma once

#include <cstdint>

#include "foundation/base/Result.h"
#include "foundation/crypto/OpenSSL.h"

namespace foundation {

/// Adds up the rounds that the encryption in one key file asks for before its passphrases become
/// keys. A file may ask for any number, for each thing in it anew, which would take hours; and a
/// folder may hold any number of such files.
class KeyDerivationBudget {
 public:
  /// Some seconds of work. The files of today ask for a million and less.
  static constexpr std::uint64_t kMaximum = 10'000'000;

  /// What is added here is taken off `leftInRun`, which outlives this.
  explicit KeyDerivationBudget(std::uint64_t& leftInRun) : leftInRun_(leftInRun) {}

  /// False when it is one of too many.
  bool add(const ASN1_INTEGER* rounds);
  /// The same for encryption by passphrase (RFC 8018, with scrypt of RFC 7914, and the older ones
  /// of RFC 7292). Other algorithms, and ones that cannot be read, take no rounds.
  bool add(const X509_ALGOR* algorithm);

  /// Present once something was not added.
  [[nodiscard]] const std::optional<Error>& error() const { return error_; }

 private:
  bool addCount(std::uint64_t rounds);

  std::uint64_t& leftInRun_;
  std::uint64_t sum_ = 0;
  std::optional<Error> error_;
};

}  // namespace foundation
