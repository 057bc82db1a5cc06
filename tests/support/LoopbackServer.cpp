#include "tests/support/LoopbackServer.h"

#include <csignal>
#include <list>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"

namespace test {

namespace {

using TLSServerContext = foundation::Handle<SSL_CTX, SSL_CTX_free>;
using TLSSession = foundation::Handle<SSL, SSL_free>;

TLSServerContext makeServerContext(const MadeIdentity& identity) {
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
    return take(std::min(limit, input_.size()));
  }
  void close() override {
    if (session_ && socket_) SSL_shutdown(session_.get());
    if (socket_) ::shutdown(socket_.get(), SHUT_WR);
    forget();
  }
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

  /// Reads until `sizeIn` finds a complete item in the input, and takes it; absent at the end.
  std::optional<std::string> takeItem(
      const std::function<std::optional<std::size_t>(const std::string&)>& sizeIn) {
    while (true) {
      if (const auto size = sizeIn(input_)) return take(*size);
      if (!fill()) return std::nullopt;
    }
  }

 private:
  std::string take(std::size_t size) {
    std::string taken = input_.substr(0, size);
    input_.erase(0, size);
    return taken;
  }

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

  void forget() {
    const std::lock_guard guard(mutex_);
    socket_.reset();
  }

  std::mutex mutex_;  // between `interrupt` and closing
  foundation::FileDescriptor socket_;
  TLSSession session_;
  std::string input_;
};

std::optional<std::size_t> sizeOfHeaders(const std::string& input) {
  const std::size_t end = input.find("\r\n\r\n");
  return end == std::string::npos ? std::nullopt : std::optional(end + 4);
}

std::optional<std::size_t> sizeOfBody(const ReceivedRequest& request, const std::string& input) {
  if (const auto length = request.header("Content-Length")) {
    const std::size_t size = std::stoull(*length);
    return input.size() >= size ? std::optional(size) : std::nullopt;
  }
  if (!request.header("Transfer-Encoding")) return 0;
  const std::size_t end = input.starts_with("0\r\n\r\n") ? 0 : input.find("\r\n0\r\n\r\n");
  if (end == std::string::npos) return std::nullopt;
  return end == 0 ? 5 : end + 7;
}

}  // namespace

std::optional<std::string> ReceivedRequest::header(std::string_view name) const {
  const std::string wanted = foundation::lowercased(name) + ":";
  for (const std::string& line : foundation::split(raw.substr(0, bodyOffset), '\n')) {
    if (!foundation::lowercased(line).starts_with(wanted)) continue;
    return std::string(foundation::trimmed(std::string_view(line).substr(wanted.size())));
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
  const auto headers = connection.takeItem(sizeOfHeaders);
  if (!headers) return false;
  const auto request = std::make_shared<ReceivedRequest>();
  request->raw = *headers;
  request->bodyOffset = headers->size();
  const auto words = foundation::split(headers->substr(0, headers->find("\r\n")), ' ');
  request->method = words.at(0);
  request->target = words.at(1);
  if (options.onHead && options.onHead(*request, connection)) {
    record(request);
    return false;
  }
  const auto body =
      connection.takeItem([&](const std::string& input) { return sizeOfBody(*request, input); });
  request->raw += body.value_or("");
  record(request);
  if (body) handler(*request, connection);
  return body.has_value();
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
