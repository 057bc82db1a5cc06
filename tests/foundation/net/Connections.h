#pragma once

#include "foundation/net/URLConnection.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Test.h"

/// What the tests of URL connections share.
namespace foundation {

inline URLRequest requestFor(const std::string& url, std::string method = "GET") {
  URLRequest request;
  request.url = URL::withString(url);
  request.method = std::move(method);
  return request;
}

inline URLRequest postTo(const std::string& url, std::size_t bodySize) {
  URLRequest request = requestFor(url, "POST");
  request.body.emplace().append(Data(std::string(bodySize, 'x')));
  return request;
}

inline URLConnection::Exchange send(const URLRequest& request) {
  return URLConnection::sendSynchronousRequest(request);
}

/// The body of the response; the error's description without one.
inline std::string answerTo(const URLRequest& request) {
  const auto exchange = send(request);
  return exchange.error ? exchange.error->description() : std::string(exchange.data->text());
}

/// For servers with TLS, whose authority is trusted.
class WithTrustedAuthority : public testing::Test {
 protected:
  WithTrustedAuthority() { writeServerCertificate(folder_.path()); }

  TemporaryFolder folder_;
  std::string identity_ = folder_ / "localhost.pem";
  ScopedEnvironment trust_{"SSL_CERT_FILE", (folder_ / "authority.pem").c_str()};
};

}  // namespace foundation
