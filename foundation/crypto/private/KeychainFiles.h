#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

struct ossl_lib_ctx_st;

/// The files that make up a keychain.
namespace foundation {

inline Error keychainError(std::string description) {
  return makeError("KeychainErrorDomain", -1, std::move(description));
}

/// Larger files are refused unread.
inline constexpr std::uintmax_t kMaximumKeychainFileSize = std::uintmax_t{16} << 20;

/// In the order of the file.
struct KeychainContents {
  std::vector<Certificate> certificates;
  std::vector<PrivateKey> keys;
};

/// A passphrase that is wiped when it is destroyed.
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

/// A library context with the legacy algorithms (RC2-40, single DES), separate from the default
/// one. If the legacy provider is not installed, files that do without it can still be read.
ossl_lib_ctx_st* legacyLibrary();

/// Reads a PEM, PKCS #12 or DER certificate file, recognised by its content, with the passphrase
/// from the file beside it. Fails with the path and the reason. Here and below, key derivation is
/// charged to `iterationsLeft` (KeyDerivationBudget.h).
Result<KeychainContents> readKeychainFile(const std::filesystem::path& path,
                                          std::uint64_t& iterationsLeft);

/// Why something encrypted did not open: there is no passphrase, it is wrong, or the last error of
/// OpenSSL.
Error lockedError(const std::optional<Passphrase>& passphrase);

/// PKCS #12 (RFC 7292) with any number of keys. An absent passphrase means trying both none and the
/// empty one.
Result<KeychainContents> readPKCS12(Bytes bytes, const std::optional<Passphrase>& passphrase,
                                    std::uint64_t& iterationsLeft);

/// Every certificate and private key among the blocks (RFC 7468) of a PEM text. Other blocks are
/// ignored; a certificate or key that cannot be read fails the whole text.
Result<KeychainContents> readPEM(std::string_view text, const std::optional<Passphrase>& passphrase,
                                 std::uint64_t& iterationsLeft);

}  // namespace foundation
