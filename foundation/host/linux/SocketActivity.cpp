#include "foundation/host/SocketActivity.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace foundation {

std::uint64_t socketActivity(int socket) {
  tcp_info info = {};
  socklen_t size = sizeof info;
  if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return 0;
  return info.tcpi_bytes_acked + info.tcpi_bytes_received;
}

}  // namespace foundation
