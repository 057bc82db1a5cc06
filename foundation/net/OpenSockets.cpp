#include "foundation/net/private/OpenSockets.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace foundation::OpenSockets {

namespace {

struct Registry {
  std::mutex mutex;
  std::vector<int> sockets;
};

/// Never destroyed: the library closes sockets until the process ends.
Registry& registry() {
  static auto& shared = *new Registry;
  return shared;
}

struct End {
  std::string address;
  std::string port;
};

template <class Query>
End endOf(int socket, const Query& query) {
  sockaddr_storage storage = {};
  socklen_t size = sizeof storage;
  auto* const address = reinterpret_cast<sockaddr*>(&storage);
  char host[NI_MAXHOST] = {};
  char port[NI_MAXSERV] = {};
  if (query(socket, address, &size) != 0 ||
      getnameinfo(address, size, host, sizeof host, port, sizeof port,
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return {};
  }
  return {host, port};
}

}  // namespace

int open(int family, int type, int protocol) {
  const int socket = ::socket(family, type, protocol);
  if (socket < 0) return socket;
  fcntl(socket, F_SETFD, FD_CLOEXEC);
  const std::lock_guard guard(registry().mutex);
  registry().sockets.push_back(socket);
  return socket;
}

int close(int socket) {
  {
    const std::lock_guard guard(registry().mutex);
    std::erase(registry().sockets, socket);
  }
  return ::close(socket);
}

int find(const Connection& connection) {
  const std::lock_guard guard(registry().mutex);
  const auto& sockets = registry().sockets;
  const auto found = std::find_if(sockets.rbegin(), sockets.rend(), [&](int socket) {
    if (endOf(socket, getsockname).port != std::to_string(connection.localPort)) return false;
    const End remote = endOf(socket, getpeername);
    return remote.address == connection.remoteAddress &&
           remote.port == std::to_string(connection.remotePort);
  });
  return found == sockets.rend() ? -1 : *found;
}

}  // namespace foundation::OpenSockets
