#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"
#include "foundation/crypto/Certificate.h"

namespace foundation {

/// Keys and certificates of a user.
///
/// A keychain is a PEM file (any number of keys and certificates), a PKCS #12 file, or a folder of
/// such files (`.pem`, `.p12`, `.pfx`, and certificates in `.cer`, `.der`, `.crt`; taken by name).
/// The passphrase of a PKCS #12 file, or of an encrypted key, is the first line of the file beside
/// it with
/// ".password" added to its name; without that file none and the empty one are tried. A key or
/// passphrase file that others can read is used, with one system-log warning. Passphrases never
/// reach a message.
class Keychain {
 public:
  /// Fails with the path when nothing is there or it cannot be read. In a folder, files that cannot
  /// be read are passed over with one system-log line each.
  static Result<Keychain> open(const std::filesystem::path& path);
  /// The user's folder ~/Library/Keychains; empty when it does not exist.
  static Keychain defaultSearchList();

  /// The identity of this certificate: present when one of the private keys belongs to its public
  /// key, whether or not the certificate itself is in the keychain.
  [[nodiscard]] std::optional<Identity> identityForCertificate(
      const Certificate& certificate) const;
  /// Every certificate here whose private key is here too, each certificate once.
  [[nodiscard]] std::vector<Identity> identities() const;
  [[nodiscard]] const std::vector<Certificate>& certificates() const { return certificates_; }
  [[nodiscard]] const std::vector<PrivateKey>& privateKeys() const { return keys_; }

 private:
  std::vector<Certificate> certificates_;
  std::vector<PrivateKey> keys_;
};

/// While it lives, each key file is read once, whatever became of it, and again only by a later
/// session; what the passphrases of all files take together is bounded. For the length of a run: a
/// passphrase may take a second to become a key, and untrusted input may say how often the keychain
/// is asked. Without one every `open` reads anew. The outermost of several counts. Safe from any
/// thread, but begun and ended while no other one uses keychains.
class KeychainSession {
 public:
  struct Options {
    /// Rounds of encryption that the files may ask for together.
    std::uint64_t maximumRounds = 50'000'000;
  };
  KeychainSession();
  explicit KeychainSession(const Options& options);
  ~KeychainSession();
  KeychainSession(const KeychainSession&) = delete;
  KeychainSession& operator=(const KeychainSession&) = delete;

 private:
  bool isOutermost_;
};

}  // namespace foundation
