#pragma once

#include <cstdint>

namespace foundation {

/// A number that grows whenever the other end of a TCP connection has sent or acknowledged bytes;
/// 0 when the system does not tell. What still lies in the system's own buffers has not moved.
std::uint64_t socketActivity(int socket);

}  // namespace foundation
