#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

namespace foundation {

/// A user's keys and certificates.
///
/// A keychain is a PEM file (any number of keys and certificates), a PKCS #12 file, or a folder of
/// such files (`.pem`, `.p12`, `.pfx`, and certificates in `.cer`, `.der`, `.crt`, selected by
/// extension). The passphrase of a PKCS #12 file or an encrypted key is the first line of the file
/// beside it with ".password" appended to the name. Without one, a PKCS #12 file is opened with no
/// passphrase or an empty one. A key or passphrase file that others can read is used, with one
/// system-log warning. Passphrases never appear in messages.
class Keychain {
 public:
  /// Fails with the path if it does not exist or cannot be read. Unreadable files in a folder are
  /// skipped with one system-log line each.
  static Result<Keychain> open(const std::filesystem::path& path);
  /// The user's folder ~/Library/Keychains; empty if there is none.
  static Keychain defaultSearchList();

  /// Present if one of the private keys belongs to the certificate, which need not be in the
  /// keychain itself.
  [[nodiscard]] std::optional<Identity> identityForCertificate(
      const Certificate& certificate) const;
  /// Every certificate whose private key is also here, without duplicates.
  [[nodiscard]] std::vector<Identity> identities() const;
  [[nodiscard]] const std::vector<Certificate>& certificates() const { return certificates_; }
  [[nodiscard]] const std::vector<PrivateKey>& privateKeys() const { return keys_; }

 private:
  std::vector<Certificate> certificates_;
  std::vector<PrivateKey> keys_;
};

/// While it lives, each key file is read only once, successfully or not, and the key derivation of
/// all files together is bounded. Meant for a whole run: deriving a key from a passphrase may take
/// a second, and untrusted input may decide how often the keychain is opened. Without a session,
/// every `open` reads the files again. Nested sessions have no effect. Keychains may be opened on
/// any thread, but not while a session begins or ends.
class KeychainSession {
 public:
  /// Of key derivation, for all files together.
  static constexpr std::uint64_t kMaximumIterations = 50'000'000;

  explicit KeychainSession(std::uint64_t maximumIterations = kMaximumIterations);
  ~KeychainSession();
  KeychainSession(const KeychainSession&) = delete;
  KeychainSession& operator=(const KeychainSession&) = delete;

 private:
  bool isOutermost_;
};

}  // namespace foundation
