#pragma once

#include <string_view>

namespace foundation::OpenSockets {

// The sockets that this folder has opened for transfers. The library gives a transfer the
// addresses of its connection, which an earlier transfer may have opened, but not its socket. All
// functions are safe from any thread.

/// A new close-on-exec socket; -1 with errno set on failure.
int open(int family, int type, int protocol);
/// Closes it; 0 or -1 as the system's own call.
int close(int socket);

struct Connection {
  std::string_view remoteAddress;
  int remotePort = 0;
  int localPort = 0;
};
/// The open socket with these ends; -1 when there is none.
int find(const Connection& connection);

}  // namespace foundation::OpenSockets
