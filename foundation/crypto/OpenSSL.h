#pragma once

#include <ctime>
#include <optional>
#include <string>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Value.h"

/// Handles and conversions for OpenSSL; for this folder only.
namespace foundation {

using BIOHandle = Handle<BIO, BIO_free_all>;
using X509Handle = Handle<X509, X509_free>;
using PKeyHandle = Handle<EVP_PKEY, EVP_PKEY_free>;
using ASN1ObjectHandle = Handle<ASN1_OBJECT, ASN1_OBJECT_free>;
using DigestContextHandle = Handle<EVP_MD_CTX, EVP_MD_CTX_free>;
using PKCS8Handle = Handle<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

/// On destruction, removes the errors that calls within its scope added to the thread's queue: the
/// next TLS read would mistake a stale entry for its own failure.
class OpenSSLErrorScope {
 public:
  OpenSSLErrorScope() { ERR_set_mark(); }
  ~OpenSSLErrorScope() { ERR_pop_to_mark(); }
  OpenSSLErrorScope(const OpenSSLErrorScope&) = delete;
  OpenSSLErrorScope& operator=(const OpenSSLErrorScope&) = delete;

  /// OpenSSL's text for the latest error; "unknown reason" if there is none.
  [[nodiscard]] static std::string reason() {
    const char* text = ERR_reason_error_string(ERR_peek_last_error());
    return text ? text : "unknown reason";
  }
};

inline const unsigned char* openSSLBytes(Bytes bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

inline Bytes bytesOf(const ASN1_STRING* string) {
  return {reinterpret_cast<const std::byte*>(ASN1_STRING_get0_data(string)),
          static_cast<std::size_t>(ASN1_STRING_length(string))};
}

/// `native` as encoded by this `i2d` function; empty if it fails.
template <class Native, class Encode>
std::string encoded(const Native* native, Encode encode) {
  unsigned char* bytes = nullptr;
  const int size = encode(native, &bytes);
  if (size < 0) return {};
  std::string out(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
  OPENSSL_free(bytes);
  return out;
}

/// Empty for an identifier of more than a few hundred bytes.
inline std::string dotted(const ASN1_OBJECT* identifier) {
  const int size = OBJ_obj2txt(nullptr, 0, identifier, 1);
  if (size <= 0) return {};
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  OBJ_obj2txt(text.data(), size + 1, identifier, 1);
  text.pop_back();
  return text;
}

/// Absent for null and for a malformed time.
inline std::optional<Date> dateOf(const ASN1_TIME* time) {
  std::tm parts{};
  if (!time || ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
  return Date(std::chrono::seconds(timegm(&parts)));
}

/// Reads `bytes`, which must outlive it; null if they are 2 GiB or more.
inline BIOHandle memoryReader(Bytes bytes) {
  if (bytes.size() > 0x7fffffff) return nullptr;
  return BIOHandle(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

}  // namespace foundation
