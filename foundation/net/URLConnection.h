#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "foundation/base/Data.h"
#include "foundation/base/Error.h"
#include "foundation/net/URLRequest.h"

namespace foundation {

/// What an authentication question is about.
struct ProtectionSpace {
  std::string host;
  int port = 0;
  /// "NSURLAuthenticationMethodServerTrust", "…HTTPBasic" or "…HTTPDigest".
  std::string authenticationMethod;
  std::string realm;
  /// True when the question is whether to trust the server's certificate.
  bool hasServerTrust = false;
};

/// One HTTP exchange over libcurl.
///
/// Redirects are followed within the same scheme, host and port only, at most 16; any other
/// redirect is the response. Certificate and host are always verified, before anything is sent.
/// Responses in gzip and deflate are decoded. Cookies live in one jar of the process, by origin,
/// never on disk. `http_proxy`, `https_proxy`, `no_proxy`, `SSL_CERT_FILE` and `SSL_CERT_DIR` are
/// honoured. Errors are in "NSURLErrorDomain" with the platform's codes (-1001 timed out, -1002
/// unsupported URL, -1003 host not found, -1004 cannot connect, -1005 connection lost, -1007 too
/// many redirects, -1011 bad server response, -1103 body above 16 MiB, -1202 server certificate
/// untrusted, -1200 other TLS failure, -1 anything else); their text names host and port, and never
/// a header.
class URLConnection {
 public:
  struct Exchange {
    std::optional<HTTPResponse> response;
    std::optional<Data> data;
    std::optional<Error> error;
  };

  /// Blocks until the exchange has ended. An HTTP error status is a response, not an error. An
  /// interruption of the run ends it at once: throws `Interrupted`.
  static Exchange sendSynchronousRequest(const URLRequest& request);

  /// Callbacks of an asynchronous exchange; all run on the main run loop's thread. The connection
  /// passed to them represents the exchange and lives for the call; it need not be the object that
  /// was started.
  class Delegate {
   public:
    virtual ~Delegate() = default;
    virtual void connectionDidReceiveResponse(URLConnection& connection,
                                              const HTTPResponse& response) = 0;
    virtual void connectionDidReceiveData(URLConnection& connection, Bytes data) = 0;
    /// The last call of an exchange is one of these two.
    virtual void connectionDidFailWithError(URLConnection& connection, const Error& error) = 0;
    virtual void connectionDidFinishLoading(URLConnection& connection) = 0;
    /// Asked once per TLS connection, and for a 401 or 407 response with a challenge. The return
    /// value never weakens certificate verification.
    virtual bool connectionCanAuthenticateAgainstProtectionSpace(URLConnection& connection,
                                                                 const ProtectionSpace& space) = 0;
  };

  /// Not started. The delegate is kept until the exchange has ended. Destroying the object does not
  /// end a started exchange.
  URLConnection(URLRequest request, std::shared_ptr<Delegate> delegate);
  ~URLConnection();
  URLConnection(const URLConnection&) = delete;

  /// Schedules the exchange on the main run loop and returns; safe from any thread, once.
  void start();
  /// No callback starts after this has returned on the loop's thread; safe from any thread.
  void cancel();

  struct Transfer;

 private:
  explicit URLConnection(std::shared_ptr<Transfer> transfer);
  std::shared_ptr<Transfer> transfer_;
};

}  // namespace foundation
