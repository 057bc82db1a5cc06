#pragma once

#include <openssl/ssl.h>

#include "foundation/net/private/ResponseCollector.h"

namespace foundation {

// A server may give its answer while a body is still going out, and close at once. The next bytes
// sent then make the system reset the connection, and libcurl gives up with the answer unread.
// These make sure that it is read.

/// From here on a write that fails on this connection, over this socket, looks like one that has to
/// wait as long as there may be something to read, so that the reader goes on and finds the answer.
/// Does nothing when it is so already.
void hideFailedWrites(SSL* session, int socket);

/// Reads what a broken connection without TLS still holds into `answer`, which has no head yet. An
/// answer that is not all there is left out; so is a body in an encoding.
void rescueAnswer(int socket, ResponseCollector& answer);

}  // namespace foundation
