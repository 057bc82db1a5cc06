#pragma once

#include <cstdint>

namespace foundation {

/// A number that grows whenever the other end of a TCP connection has sent or acknowledged bytes; 0
/// when unknown. Bytes in the system's send buffer do not count.
std::uint64_t socketActivity(int socket);

}  // namespace foundation
