#include "tests/support/LoopbackServer.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <list>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include "foundation/base/Handle.h"

namespace test {

namespace {

using TLSServerContext = foundation::Handle<SSL_CTX, SSL_CTX_free>;
using TLSSession = foundation::Handle<SSL, SSL_free>;

TLSServerContext makeServerContext(const TLSIdentity& identity) {
  TLSServerContext context(SSL_CTX_new(TLS_server_method()));
  if (!context || SSL_CTX_use_certificate(context.get(), identity.native()) != 1 ||
      SSL_CTX_use_PrivateKey(context.get(), identity.nativeKey()) != 1) {
    throw std::runtime_error("cannot serve TLS with this identity");
  }
  SSL_CTX_set_mode(context.get(), SSL_MODE_AUTO_RETRY);
  return context;
}

/// A client that disconnects must not end the test program.
void ignoreBrokenPipes() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

class Connection : public Peer {
 public:
  explicit Connection(int socket) : socket_(socket) {}

  bool startTLS(SSL_CTX* context) {
    session_.reset(SSL_new(context));
    return session_ && SSL_set_fd(session_.get(), socket_.get()) == 1 &&
           SSL_accept(session_.get()) == 1;
  }

  bool send(std::string_view bytes) override {
    while (!bytes.empty()) {
      const auto count = sendSome(bytes.substr(0, std::size_t{1} << 20));
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  std::string receive(std::size_t limit) override {
    if (input_.empty()) fill();
    std::string taken = input_.substr(0, limit);
    input_.erase(0, taken.size());
    return taken;
  }

  void close() override {
    if (session_ && socket_) SSL_shutdown(session_.get());
    end();
  }
  void cut() override { end(); }
  void reset() override {
    const linger now = {1, 0};
    if (socket_) setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    forget();
  }
  void stall() override {
    pollfd entry = {socket_.get(), POLLRDHUP, 0};
    while (socket_ && poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
  }

  /// Wakes the connection's thread; called from another thread.
  void interrupt() {
    const std::lock_guard guard(mutex_);
    if (socket_) ::shutdown(socket_.get(), SHUT_RDWR);
  }

  [[nodiscard]] bool isOpen() const { return static_cast<bool>(socket_); }

  /// Reads until `enough` returns the size of a complete item; 0 at the end.
  std::size_t readUntil(const std::function<std::size_t()>& enough) {
    while (true) {
      if (const std::size_t size = enough()) return size;
      if (!fill()) return 0;
    }
  }
  [[nodiscard]] const std::string& input() const { return input_; }
  std::string take(std::size_t size) {
    std::string taken;
    if (size == input_.size()) {
      taken.swap(input_);
    } else {
      taken = input_.substr(0, size);
      input_.erase(0, size);
    }
    return taken;
  }

 private:
  bool fill() {
    char buffer[64 * 1024];
    if (!socket_) return false;
    const auto count = session_ ? SSL_read(session_.get(), buffer, sizeof buffer)
                                : ::recv(socket_.get(), buffer, sizeof buffer, 0);
    if (count <= 0) return false;
    input_.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  ssize_t sendSome(std::string_view bytes) {
    if (!socket_) return -1;
    if (session_) return SSL_write(session_.get(), bytes.data(), static_cast<int>(bytes.size()));
    return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  void end() {
    if (socket_) ::shutdown(socket_.get(), SHUT_WR);
    forget();
  }
  void forget() {
    const std::lock_guard guard(mutex_);
    socket_.reset();
  }

  std::mutex mutex_;  // between `interrupt` and closing
  foundation::FileDescriptor socket_;
  TLSSession session_;
  std::string input_;
};

void parseHead(ReceivedRequest& request) {
  std::string_view head = std::string_view(request.raw).substr(0, request.bodyOffset);
  bool isFirst = true;
  while (!head.empty()) {
    const std::string_view line = head.substr(0, head.find("\r\n"));
    head.remove_prefix(std::min(head.size(), line.size() + 2));
    if (std::exchange(isFirst, false)) {
      const std::size_t space = line.find(' ');
      request.method = line.substr(0, space);
      request.target = line.substr(std::min(line.size(), space + 1));
      request.target.resize(std::min(request.target.size(), request.target.rfind(' ')));
    } else if (const std::size_t colon = line.find(':'); colon != std::string_view::npos) {
      request.headerLines.emplace_back(line.substr(0, colon),
                                       foundation::trimmed(line.substr(colon + 1)));
    }
  }
}

/// The size of the body at the start of `input`; absent until it is complete.
std::optional<std::size_t> wholeBody(const ReceivedRequest& request, const std::string& input) {
  if (const auto length = request.header("Content-Length")) {
    const std::size_t size = std::strtoull(length->c_str(), nullptr, 10);
    return input.size() >= size ? std::optional(size) : std::nullopt;
  }
  if (!request.header("Transfer-Encoding")) return 0;
  const std::size_t end = input.starts_with("0\r\n\r\n") ? 0 : input.find("\r\n0\r\n\r\n");
  if (end == std::string::npos) return std::nullopt;
  return end == 0 ? 5 : end + 7;
}

}  // namespace

std::optional<std::string> ReceivedRequest::header(std::string_view name) const {
  const std::string wanted = foundation::lowercased(name);
  for (const auto& [field, value] : headerLines) {
    if (foundation::lowercased(field) == wanted) return value;
  }
  return std::nullopt;
}

struct LoopbackServer::State {
  Handler handler;
  ServerOptions options;
  TLSServerContext context;
  foundation::FileDescriptor listener;
  int port = 0;
  mutable std::mutex mutex;
  bool isStopping = false;
  std::size_t connectionCount = 0;
  std::list<Connection> connections;
  std::list<std::thread> threads;
  std::vector<std::shared_ptr<const ReceivedRequest>> requests;
  std::thread acceptor;

  void listen();
  void acceptAll();
  void admit(int socket);
  void serve(Connection& connection);
  bool serveOne(Connection& connection);
  void record(std::shared_ptr<const ReceivedRequest> request);
  void stop();
};

void LoopbackServer::State::listen() {
  listener.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(options.port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const general = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener.get(), general, size) != 0 || ::listen(listener.get(), 1024) != 0 ||
      getsockname(listener.get(), general, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot listen on 127.0.0.1");
  }
  port = ntohs(address.sin_port);
}

void LoopbackServer::State::acceptAll() {
  while (true) {
    const int socket = ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
      admit(socket);
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return;
    }
  }
}

void LoopbackServer::State::admit(int socket) {
  const std::lock_guard guard(mutex);
  Connection& connection = connections.emplace_back(socket);
  ++connectionCount;
  if (isStopping) connection.interrupt();
  threads.emplace_back([this, &connection] {
    ignoreBrokenPipes();
    serve(connection);
  });
}

void LoopbackServer::State::serve(Connection& connection) {
  if (options.onConnection && options.onConnection(connection)) {
    connection.close();
    return;
  }
  if (!context || connection.startTLS(context.get())) {
    while (connection.isOpen() && serveOne(connection)) {
    }
  }
  connection.close();
}

bool LoopbackServer::State::serveOne(Connection& connection) {
  const std::size_t headSize = connection.readUntil([&]() -> std::size_t {
    const std::size_t end = connection.input().find("\r\n\r\n");
    return end == std::string::npos ? 0 : end + 4;
  });
  if (headSize == 0) return false;
  const auto request = std::make_shared<ReceivedRequest>();
  request->raw = connection.take(headSize);
  request->bodyOffset = headSize;
  parseHead(*request);
  if (options.onHead && options.onHead(*request, connection)) {
    record(request);
    return false;
  }
  std::optional<std::size_t> bodySize;
  connection.readUntil([&]() -> std::size_t {
    bodySize = wholeBody(*request, connection.input());
    return bodySize.has_value();
  });
  request->complete = bodySize.has_value();
  request->raw += connection.take(bodySize.value_or(connection.input().size()));
  record(request);
  if (!request->complete) return false;
  handler(*request, connection);
  return true;
}

void LoopbackServer::State::record(std::shared_ptr<const ReceivedRequest> request) {
  const std::lock_guard guard(mutex);
  requests.push_back(std::move(request));
}

void LoopbackServer::State::stop() {
  {
    const std::lock_guard guard(mutex);
    isStopping = true;
    for (Connection& connection : connections) connection.interrupt();
  }
  ::shutdown(listener.get(), SHUT_RDWR);
  acceptor.join();
  for (std::thread& thread : threads) thread.join();
}

LoopbackServer::LoopbackServer(Handler handler, ServerOptions options)
    : state_(std::make_shared<State>()) {
  state_->handler = std::move(handler);
  state_->options = std::move(options);
  if (state_->options.identity) state_->context = makeServerContext(*state_->options.identity);
  state_->listen();
  state_->acceptor = std::thread([state = state_.get()] { state->acceptAll(); });
}

LoopbackServer::~LoopbackServer() { state_->stop(); }

int LoopbackServer::port() const { return state_->port; }

std::string LoopbackServer::url(std::string_view path) const {
  const char* const start = state_->options.identity ? "https://localhost:" : "http://127.0.0.1:";
  return start + std::to_string(port()).append(path);
}

std::vector<std::shared_ptr<const ReceivedRequest>> LoopbackServer::requests() const {
  const std::lock_guard guard(state_->mutex);
  return state_->requests;
}

std::size_t LoopbackServer::connectionCount() const {
  const std::lock_guard guard(state_->mutex);
  return state_->connectionCount;
}

std::string httpAnswer(int status, std::string_view body, std::string_view headerLines) {
  std::string answer = "HTTP/1.1 " + std::to_string(status) + " Answer\r\n";
  answer.append(headerLines);
  answer += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return answer.append(body);
}

Handler alwaysAnswer(std::string bytes) {
  return [bytes = std::move(bytes)](const ReceivedRequest&, Peer& peer) { peer.send(bytes); };
}

}  // namespace test
