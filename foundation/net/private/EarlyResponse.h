#pragma once

#include <openssl/ssl.h>

#include "foundation/net/private/ResponseCollector.h"

namespace foundation {

// A server may respond while a body is still being sent, and close at once. The next bytes sent
// then make the system reset the connection, and libcurl fails with the response unread. These
// functions make sure that it is read.
//
// libcurl 7.88 needs them. For a newer one, let `CurlTransfer::prepareForEarlyResponse` return at
// once and run foundation_net_tests and TransportFaultTest: if all early responses still arrive,
// with TLS and without, these functions can go.

/// From here on a failed write on this connection looks like one that must wait, as long as there
/// may be something to read from the socket: so the library goes on reading and finds the response.
/// May be called again for the same connection.
void hideFailedWrites(SSL* session, int socket);

/// Reads what a broken connection without TLS still holds into `collector`, which has no headers
/// yet. Incomplete headers are ignored, and so is a body in a transfer or content encoding.
void rescueResponse(int socket, ResponseCollector& collector);

}  // namespace foundation
