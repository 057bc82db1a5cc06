#include "foundation/crypto/private/KeychainFiles.h"

#include <cstring>

#include <openssl/crypto.h>
#include <openssl/pem.h>

#include "foundation/crypto/OpenSSL.h"
#include "foundation/crypto/private/KeyDerivationBudget.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/SystemLog.h"

namespace foundation {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kBlockStart = "-----BEGIN ";
constexpr std::string_view kBlockEnd = "-----END ";
constexpr std::string_view kDashes = "-----";

struct Block {
  std::string_view label;
  /// From the first dash of its first line to the end of its last line.
  std::string_view text;
};

/// Takes the next block off `rest`; an unterminated block extends to the end of the text.
std::optional<Block> takeBlock(std::string_view& rest) {
  const auto start = rest.find(kBlockStart);
  if (start == rest.npos) return std::nullopt;
  rest.remove_prefix(start);
  const auto labelEnd = rest.find(kDashes, kBlockStart.size());
  if (labelEnd == rest.npos) return std::nullopt;
  const auto label = rest.substr(kBlockStart.size(), labelEnd - kBlockStart.size());
  const auto lastLine = rest.find(kBlockEnd, labelEnd);
  const auto end = lastLine == rest.npos ? rest.npos : rest.find('\n', lastLine);
  const auto text = rest.substr(0, end);
  rest.remove_prefix(text.size());
  return Block{label, text};
}

/// OpenSSL's passphrase callback; never prompts on the terminal.
int givePassphrase(char* out, int size, int /*forWriting*/, void* context) {
  const auto* passphrase = static_cast<const std::optional<Passphrase>*>(context);
  if (!*passphrase) return 0;
  const std::string& text = (*passphrase)->text();
  if (size < 0 || text.size() > static_cast<std::size_t>(size)) return -1;
  // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the length is returned
  std::memcpy(out, text.data(), text.size());
  return static_cast<int>(text.size());
}

Error withReason(const std::string& problem) {
  return keychainError(problem + ": " + OpenSSLErrorScope::reason());
}

bool isCertificateLabel(std::string_view label) {
  return label == "CERTIFICATE" || label == "X509 CERTIFICATE" || label == "TRUSTED CERTIFICATE";
}

/// In the form of RFC 5958, or in OpenSSL's older one.
bool isEncrypted(const Block& block) {
  return block.label == "ENCRYPTED PRIVATE KEY" ||
         block.text.find("Proc-Type: 4,ENCRYPTED") != block.text.npos;
}

/// A key belongs to the library context that decoded it; the rest of the program uses the default.
EVP_PKEY* inDefaultLibrary(const EVP_PKEY* key) {
  const PKCS8Handle encoded(EVP_PKEY2PKCS8(key));
  return encoded ? EVP_PKCS82PKEY(encoded.get()) : nullptr;
}

void freePEM(void* part) { OPENSSL_free(part); }

/// Charges the key in the block, whatever its label says; false if that exceeds the budget.
bool isAffordable(const Block& block, KeyDerivationBudget& budget) {
  const BIOHandle reader = memoryReader(bytesOf(block.text));
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* content = nullptr;
  long size = 0;
  if (PEM_read_bio(reader.get(), &name, &header, &content, &size) != 1) return true;
  const Handle<char, freePEM> nameOwner(name);
  const Handle<char, freePEM> headerOwner(header);
  const Handle<unsigned char, freePEM> contentOwner(content);
  const unsigned char* position = content;
  const Handle<X509_SIG, X509_SIG_free> key(d2i_X509_SIG(nullptr, &position, size));
  if (!key) return true;
  const X509_ALGOR* algorithm = nullptr;
  X509_SIG_get0(key.get(), &algorithm, nullptr);
  return budget.charge(algorithm);
}

Result<> addBlock(const Block& block, const std::optional<Passphrase>& passphrase,
                  KeyDerivationBudget& budget, KeychainContents& contents) {
  const BIOHandle reader = memoryReader(bytesOf(block.text));
  void* context = const_cast<std::optional<Passphrase>*>(&passphrase);
  if (isCertificateLabel(block.label)) {
    X509* certificate = PEM_read_bio_X509_AUX(reader.get(), nullptr, givePassphrase, context);
    if (!certificate) return withReason("is not a certificate");
    contents.certificates.push_back(Certificate::adopt(certificate));
  } else if (block.label.ends_with("PRIVATE KEY")) {
    if (!isAffordable(block, budget)) return *budget.error();
    const PKeyHandle decoded(PEM_read_bio_PrivateKey_ex(reader.get(), nullptr, givePassphrase,
                                                        context, legacyLibrary(), nullptr));
    EVP_PKEY* key = decoded ? inDefaultLibrary(decoded.get()) : nullptr;
    if (!key && isEncrypted(block)) return lockedError(passphrase);
    if (!key) return withReason("cannot be read as a private key");
    contents.keys.push_back(PrivateKey::adopt(key));
  }
  return {};
}

void warnIfReadableByOthers(const fs::path& path, std::string_view holds) {
  constexpr fs::perms kOthers = fs::perms::group_read | fs::perms::others_read;
  std::error_code failure;
  const auto permissions = fs::status(path, failure).permissions();
  if (failure || (permissions & kOthers) == fs::perms::none) return;
  systemLogOnce(path.string() + " holds " + std::string(holds) +
                " and can be read by other users of this computer");
}

Result<Data> boundedContents(const fs::path& path) {
  std::error_code failure;
  const auto size = fs::file_size(path, failure);
  if (!failure && size > kMaximumKeychainFileSize) {
    return keychainError(path.string() + ": " + std::to_string(size) +
                         " bytes are too many for a key file");
  }
  return FileManager::contentsOfFile(path);
}

/// The first line of the file beside `path`; absent when there is no such file.
Result<std::optional<Passphrase>> passphraseFor(const fs::path& path) {
  const fs::path file = path.string() + ".password";
  if (!FileManager::fileExistsAtPath(file)) return std::optional<Passphrase>();
  return boundedContents(file).map([&](const Data& contents) {
    warnIfReadableByOthers(file, "a passphrase");
    std::string_view line = contents.text();
    line = line.substr(0, line.find('\n'));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return std::optional<Passphrase>(std::in_place, std::string(line));
  });
}

/// A SEQUENCE with a long or indefinite length. A PEM text may begin with "0" too, but is ASCII.
bool beginsAsDER(std::string_view text) {
  return text.size() >= 2 && text[0] == 0x30 && (static_cast<unsigned char>(text[1]) & 0x80) != 0;
}

/// A login.keychain-db, or one of the databases beside it.
bool isMacKeychain(std::string_view text) {
  return text.starts_with("kych") || text.starts_with("SQLite format 3");
}

/// Ignores the file's name: extensions are often wrong.
Result<KeychainContents> parsed(const Data& data, const std::optional<Passphrase>& passphrase,
                                std::uint64_t& iterationsLeft) {
  if (beginsAsDER(data.text())) {
    if (auto certificate = Certificate::fromDER(data.bytes())) {
      return KeychainContents{{*std::move(certificate)}, {}};
    }
    return readPKCS12(data.bytes(), passphrase, iterationsLeft);
  }
  if (data.text().find(kBlockStart) != std::string_view::npos) {
    return readPEM(data.text(), passphrase, iterationsLeft);
  }
  if (isMacKeychain(data.text())) {
    return keychainError(
        "a Mac's own keychain file, which cannot be read here: export the identity from it as a "
        ".p12 file");
  }
  return keychainError("neither a PEM text, nor a PKCS #12 file, nor a certificate");
}

}  // namespace

Error lockedError(const std::optional<Passphrase>& passphrase) {
  if (!passphrase) {
    return keychainError(
        "cannot be opened without a passphrase: there is no .password file beside it");
  }
  std::string problem = "wrong passphrase";
  // A wrong passphrase leaves no error or bad padding; by chance the padding may also be valid.
  const unsigned long code = ERR_peek_last_error();
  const int reason = ERR_GET_REASON(code);
  const bool isPadding =
      (ERR_GET_LIB(code) == ERR_LIB_PKCS12 && reason == PKCS12_R_PKCS12_CIPHERFINAL_ERROR) ||
      (ERR_GET_LIB(code) == ERR_LIB_PEM && reason == PEM_R_BAD_DECRYPT);
  if (code != 0 && !isPadding) problem += ", or " + OpenSSLErrorScope::reason();
  return keychainError("cannot be opened with the passphrase in the .password file beside it: " +
                       problem);
}

Passphrase::~Passphrase() { OPENSSL_cleanse(text_.data(), text_.size()); }

Result<KeychainContents> readPEM(std::string_view text, const std::optional<Passphrase>& passphrase,
                                 std::uint64_t& iterationsLeft) {
  const OpenSSLErrorScope errors;
  KeychainContents contents;
  KeyDerivationBudget budget(iterationsLeft);
  for (std::size_t number = 1; const auto block = takeBlock(text); ++number) {
    if (const auto added = addBlock(*block, passphrase, budget, contents); !added) {
      return keychainError("block " + std::to_string(number) + " (" + std::string(block->label) +
                           ") " + added.error().localizedDescription());
    }
  }
  return contents;
}

Result<KeychainContents> readKeychainFile(const fs::path& path, std::uint64_t& iterationsLeft) {
  const auto data = boundedContents(path);
  if (!data) return data.error();
  const auto passphrase = passphraseFor(path);
  if (!passphrase) return passphrase.error();
  auto contents = parsed(*data, *passphrase, iterationsLeft).mapError([&](const Error& error) {
    return keychainError(path.string() + ": " + error.localizedDescription());
  });
  if (contents && !contents->keys.empty()) warnIfReadableByOthers(path, "a private key");
  return contents;
}

}  // namespace foundation
