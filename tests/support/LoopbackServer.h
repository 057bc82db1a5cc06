#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/net/URLRequest.h"
#include "tests/support/TLSCertificates.h"

namespace test {

/// One request as it came in.
struct ReceivedRequest {
  /// Every byte of it: head, blank line and body (a chunked body with its chunk lines).
  std::string raw;
  std::size_t bodyOffset = 0;
  std::string method;
  /// As written in the request line; absolute when the client takes this server for a proxy.
  std::string target;
  /// In the order and spelling of the request.
  std::vector<std::pair<std::string, std::string>> headerLines;
  /// False when the client went away before its body was there.
  bool complete = false;

  [[nodiscard]] std::string_view body() const { return std::string_view(raw).substr(bodyOffset); }
  /// The first field of this name, compared without regard to case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// The server's end of one connection, for handlers. Not for use after the handler has returned.
class Peer {
 public:
  virtual ~Peer() = default;
  /// Sends all of it; false when the client is gone.
  virtual bool send(std::string_view bytes) = 0;
  /// Takes up to `limit` bytes that no request has used yet; empty at the end or after an error.
  virtual std::string receive(std::size_t limit) = 0;
  /// Orderly end, TLS included.
  virtual void close() = 0;
  /// Ends with a TCP reset: what was not read or sent is lost.
  virtual void reset() = 0;
  /// Ends TCP in the middle of TLS, without its closing message.
  virtual void cut() = 0;
  /// Does nothing until the client ends the connection or the server is stopped.
  virtual void stall() = 0;
};

using Handler = std::function<void(const ReceivedRequest&, Peer&)>;

struct ServerOptions {
  /// With one the server speaks TLS.
  std::optional<TLSIdentity> identity{};
  /// 0: a free port of the system's choosing.
  int port = 0;
  /// Called for each connection before anything is read (before TLS too); true: it did all that is
  /// to be done with it.
  std::function<bool(Peer&)> onConnection{};
  /// Called when a request's head is there and its body is not read yet; true: it answered, and the
  /// connection is closed without reading the body.
  std::function<bool(const ReceivedRequest&, Peer&)> onHead{};
};

/// A small HTTP/1.1 server on 127.0.0.1 that keeps the raw bytes of every request and answers
/// whatever its handler sends, right or wrong.
///
/// Each connection has a thread, on which the handlers run; a connection is kept for further
/// requests until a handler or the client closes it.
class LoopbackServer {
 public:
  explicit LoopbackServer(Handler handler, ServerOptions options = {});
  /// Ends every connection and waits for the handlers.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] int port() const;
  /// "http://127.0.0.1:PORT" or "https://localhost:PORT", with `path` appended.
  [[nodiscard]] std::string url(std::string_view path = {}) const;
  /// The requests whose handler was called, in the order of their arrival.
  [[nodiscard]] std::vector<std::shared_ptr<const ReceivedRequest>> requests() const;
  [[nodiscard]] std::size_t connectionCount() const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

/// A whole answer with Content-Length; `headerLines` each end in "\r\n".
std::string httpAnswer(int status, std::string_view body = {}, std::string_view headerLines = {});

/// Answers every request alike.
Handler alwaysAnswer(std::string bytes);

}  // namespace test
