#pragma once

#include <string>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"

/// Owners for OpenSSL's objects; for the sources of this folder only.
namespace foundation {

using BIOHandle = Handle<BIO, BIO_free_all>;
using X509Handle = Handle<X509, X509_free>;
using PKeyHandle = Handle<EVP_PKEY, EVP_PKEY_free>;
using ASN1ObjectHandle = Handle<ASN1_OBJECT, ASN1_OBJECT_free>;
using PKCS8Handle = Handle<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

/// Takes back, at the end of its scope, whatever the calls inside it left in the thread's error
/// queue: a stale entry would be taken for a failure of the next TLS read.
class OpenSSLErrorScope {
 public:
  OpenSSLErrorScope() { ERR_set_mark(); }
  ~OpenSSLErrorScope() { ERR_pop_to_mark(); }
  OpenSSLErrorScope(const OpenSSLErrorScope&) = delete;
  OpenSSLErrorScope& operator=(const OpenSSLErrorScope&) = delete;

  /// The library's words for the latest failure; "unknown reason" when it left none.
  [[nodiscard]] static std::string reason() {
    const char* text = ERR_reason_error_string(ERR_peek_last_error());
    return text ? text : "unknown reason";
  }
};

inline const unsigned char* openSSLBytes(Bytes bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

/// A reader of `bytes`, which must outlive it; empty when they are 2 GiB or more.
inline BIOHandle memoryReader(Bytes bytes) {
  if (bytes.size() > 0x7fffffff) return nullptr;
  return BIOHandle(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

}  // namespace foundation
