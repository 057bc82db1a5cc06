#pragma once

#include <openssl/ssl.h>

#include "foundation/Handle.h"
#include "tests/support/TLSCertificates.h"

namespace test {

using TLSServerContext = foundation::Handle<SSL_CTX, SSL_CTX_free>;

/// What a TLS server needs of OpenSSL. Throws when the identity cannot be used.
TLSServerContext makeServerContext(const TLSIdentity& identity);

}  // namespace test
