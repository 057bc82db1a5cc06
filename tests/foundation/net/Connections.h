#pragma once

#include "foundation/net/URLConnection.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/Test.h"

/// What the tests of URL connections share.
namespace foundation {

inline URLRequest requestFor(const std::string& url, std::string method = "GET") {
  URLRequest request;
  request.url = URL::withString(url);
  request.method = std::move(method);
  return request;
}

/// With a header field that no error may show.
inline URLRequest secretPostTo(const std::string& url, std::size_t bodySize) {
  URLRequest request = requestFor(url, "POST");
  request.headers = {{"X-Secret", "canary"}};
  request.body.emplace().append(Data(std::string(bodySize, 'x')));
  return request;
}

inline URLConnection::Exchange send(const URLRequest& request) {
  return URLConnection::sendSynchronousRequest(request);
}

/// What went wrong in an exchange, for messages and comparisons.
inline std::string problemOf(const URLConnection::Exchange& exchange) {
  return exchange.error ? exchange.error->description() : "";
}

/// For servers with a certificate; those of one authority are trusted.
class WithTrustedAuthority : public testing::Test {
 protected:
  static ServerOptions tls(const TLSAuthority& issuer) {
    ServerOptions options;
    options.identity = issuer.issue();
    return options;
  }

  TemporaryFolder folder_;
  TLSAuthority authority_;
  std::string trusted_ = folder_.write("trusted.pem", authority_.certificate()).string();
  ScopedEnvironment trust_{"SSL_CERT_FILE", trusted_.c_str()};
};

}  // namespace foundation
