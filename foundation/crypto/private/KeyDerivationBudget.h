#pragma once

#include <cstdint>

#include "foundation/base/Result.h"
#include "foundation/crypto/OpenSSL.h"

namespace foundation {

/// Limits the iterations of key derivation for one key file and for a whole run. A file may ask for
/// any number, separately for each item in it, which could take hours.
class KeyDerivationBudget {
 public:
  /// For one file: a few seconds of work. Real files ask for a million at most.
  static constexpr std::uint64_t kMaximum = 10'000'000;

  /// Also charges `leftInRun`, which must outlive this object.
  explicit KeyDerivationBudget(std::uint64_t& leftInRun) : leftInRun_(leftInRun) {}

  /// False, with `error` set, if that many iterations exceed a limit; then nothing is charged.
  bool charge(const ASN1_INTEGER* iterations);
  /// The same for password-based encryption (RFC 8018, scrypt of RFC 7914, and the older schemes of
  /// RFC 7292). Other algorithms, and malformed ones, cost nothing.
  bool charge(const X509_ALGOR* algorithm);

  /// Present once a charge was refused.
  [[nodiscard]] const std::optional<Error>& error() const { return error_; }

 private:
  bool chargeCount(std::uint64_t iterations);

  std::uint64_t& leftInRun_;
  std::uint64_t sum_ = 0;
  std::optional<Error> error_;
};

}  // namespace foundation
