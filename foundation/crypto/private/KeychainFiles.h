#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

struct ossl_lib_ctx_st;

/// The kinds of file that a keychain is made of; for the sources of this folder only.
namespace foundation {

inline constexpr std::string_view kKeychainErrorDomain = "KeychainErrorDomain";

/// Files above this size are not key files, whatever their name says.
inline constexpr std::uintmax_t kMaximumKeychainFileSize = std::uintmax_t{16} << 20;

/// What one file holds, in its order.
struct KeychainContents {
  std::vector<Certificate> certificates;
  std::vector<PrivateKey> keys;
};

/// A passphrase in memory, wiped at the end of its life.
class Passphrase {
 public:
  Passphrase() = default;
  explicit Passphrase(std::string text) : text_(std::move(text)) {}
  Passphrase(Passphrase&& other) noexcept : text_(std::exchange(other.text_, {})) {}
  Passphrase& operator=(Passphrase&&) = delete;
  ~Passphrase();

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// The crypto library with its legacy algorithms (RC2-40, single DES), apart from the one that
/// everything else uses. Without the legacy module the newer files can still be read.
ossl_lib_ctx_st* legacyLibrary();

/// Reads a PEM, PKCS #12 or DER certificate file, told apart by content, with the passphrase from
/// the file beside it. Fails with the path and what is wrong there. The rounds of encryption that
/// this takes (KeyDerivationBudget.h) are taken off `roundsLeft`, here and below.
Result<KeychainContents> readKeychainFile(const std::filesystem::path& path,
                                          std::uint64_t& roundsLeft);

/// What to say of something encrypted that did not open: that there was no passphrase, or that it
/// is the wrong one, or what the crypto library says.
Error lockedError(const std::optional<Passphrase>& passphrase);

/// PKCS #12 (RFC 7292) with any number of keys. Without a passphrase, none and the empty one are
/// tried.
Result<KeychainContents> readPKCS12(Bytes bytes, const std::optional<Passphrase>& passphrase,
                                    std::uint64_t& roundsLeft);

/// Every certificate and private key among the blocks (RFC 7468) of a PEM text; other blocks are
/// passed over, and a certificate or key that cannot be read fails the whole.
Result<KeychainContents> readPEM(std::string_view text, const std::optional<Passphrase>& passphrase,
                                 std::uint64_t& roundsLeft);

}  // namespace foundation
