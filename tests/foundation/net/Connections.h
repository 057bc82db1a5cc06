// What the tests of URL connections share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/net/URLConnection.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {

using test::alwaysAnswer;
using test::httpAnswer;
using test::LoopbackServer;
using test::Peer;
using test::ReceivedRequest;

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

/// For servers with a certificate; those of one authority are trusted.
class WithTrustedAuthority : public testing::Test {
 protected:
  static test::ServerOptions tls(const test::TLSAuthority& issuer) {
    test::ServerOptions options;
    options.identity = issuer.issue();
    return options;
  }

  test::TemporaryFolder folder_;
  test::TLSAuthority authority_;
  std::string trusted_ = folder_.write("trusted.pem", authority_.certificate()).string();
  test::ScopedEnvironment trust_{"SSL_CERT_FILE", trusted_.c_str()};
};

}  // namespace foundation
