#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/Identities.h"

namespace test {

/// A request as received.
struct ReceivedRequest {
  /// Every byte: headers, blank line and body (a chunked body with its chunk lines).
  std::string raw;
  std::size_t bodyOffset = 0;
  std::string method;
  /// As in the request line; absolute when the client uses this server as a proxy.
  std::string target;

  [[nodiscard]] std::string_view body() const { return std::string_view(raw).substr(bodyOffset); }
  /// The first header of this name, ignoring case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// The server's end of a connection, for handlers; invalid once the handler has returned.
class Peer {
 public:
  virtual ~Peer() = default;
  /// Sends all of it; false when the client is gone.
  virtual bool send(std::string_view bytes) = 0;
  /// Reads up to `limit` bytes that belong to no request yet; empty at the end or after an error.
  virtual std::string receive(std::size_t limit) = 0;
  /// An orderly shutdown, TLS included.
  virtual void close() = 0;
  /// Ends with a TCP reset: unread and unsent bytes are lost.
  virtual void reset() = 0;
  /// Blocks until the client ends the connection or the server stops.
  virtual void stall() = 0;
};

using Handler = std::function<void(const ReceivedRequest&, Peer&)>;

struct ServerOptions {
  /// For TLS; absent for plain HTTP.
  std::optional<MadeIdentity> identity{};
  /// Called for each connection before anything is read (before TLS, too); true when it has handled
  /// the connection completely.
  std::function<bool(Peer&)> onConnection{};
  /// Called with a request's headers before its body is read; true when it has responded, so that
  /// the connection is closed without reading the body.
  std::function<bool(const ReceivedRequest&, Peer&)> onHead{};
};

/// A small HTTP/1.1 server on 127.0.0.1 that keeps the raw bytes of every request and sends
/// whatever its handler does, valid or not.
///
/// Each connection has a thread, on which the handlers run, and is kept open until a handler or the
/// client closes it.
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

/// A complete response with Content-Length; each of `headerLines` ends in "\r\n".
std::string httpAnswer(int status, std::string_view body = {}, std::string_view headerLines = {});

/// Sends the same response to every request.
Handler alwaysAnswer(std::string bytes);

}  // namespace test
