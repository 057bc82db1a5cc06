#include "foundation/net/private/EarlyResponse.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <new>

#include <openssl/bio.h>
#include <sys/socket.h>

namespace foundation {

namespace {

/// Most bytes of a rescued response.
constexpr std::size_t kMaximumRescue = std::size_t{1} << 20;

/// False once the other side's last byte has been read.
bool mayHoldResponse(int socket) {
  if (socket < 0) return true;
  char byte;
  const ssize_t count = recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

int writeOrWait(BIO* self, const char* bytes, std::size_t size, std::size_t* written) {
  BIO* const below = BIO_next(self);
  const int result = BIO_write_ex(below, bytes, size, written);
  const auto socket = static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(self)));
  BIO_clear_retry_flags(self);
  // At the end of the input the library stops reading, and would then wait for ever.
  if (result <= 0 && (BIO_should_retry(below) || mayHoldResponse(socket))) {
    BIO_set_retry_write(self);
  }
  return result;
}

long passOn(BIO* self, int command, long number, void* pointer) {
  return BIO_ctrl(BIO_next(self), command, number, pointer);
}

int makeReady(BIO* self) {
  BIO_set_init(self, 1);
  return 1;
}

int waitingType() {
  static const int type = BIO_get_new_index() | BIO_TYPE_FILTER;
  return type;
}

BIO_METHOD* makeMethod() {
  BIO_METHOD* const method = BIO_meth_new(waitingType(), "write that never fails");
  if (!method) throw std::bad_alloc();
  BIO_meth_set_write_ex(method, writeOrWait);
  BIO_meth_set_ctrl(method, passOn);
  BIO_meth_set_create(method, makeReady);
  return method;
}

const BIO_METHOD* waitingMethod() {
  static const BIO_METHOD* const method = makeMethod();
  return method;
}

int statusIn(std::string_view line) {
  int status = 0;
  const std::size_t space = line.find(' ');
  if (!line.starts_with("HTTP/") || space == std::string_view::npos) return 0;
  const std::string_view digits = line.substr(space + 1, 3);
  std::from_chars(digits.data(), digits.data() + digits.size(), status);
  return status;
}

std::string readAll(int socket) {
  std::string all;
  char buffer[16 * 1024];
  while (all.size() < kMaximumRescue) {
    const ssize_t count = recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
    if (count <= 0) break;
    all.append(buffer, static_cast<std::size_t>(count));
  }
  return all;
}

}  // namespace

void hideFailedWrites(SSL* session, int socket) {
  BIO* const below = SSL_get_wbio(session);
  if (!below || BIO_method_type(below) == waitingType()) return;
  BIO* const waiting = BIO_new(waitingMethod());
  if (!waiting) throw std::bad_alloc();
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the pointer only carries the number
  BIO_set_data(waiting, reinterpret_cast<void*>(static_cast<std::intptr_t>(socket)));
  BIO_up_ref(below);
  SSL_set0_wbio(session, BIO_push(waiting, below));
}

void rescueResponse(int socket, ResponseCollector& collector) {
  const std::string all = readAll(socket);
  std::string_view left = all;
  long status = 0;
  while (!collector.hasHeader()) {
    const std::size_t end = left.find('\n');
    if (end == std::string_view::npos) return;
    const std::string_view line = left.substr(0, end + 1);
    left.remove_prefix(line.size());
    if (line.starts_with("HTTP/")) status = statusIn(line);
    if (!collector.addHeaderLine(line, status)) return;
  }
  const auto& headers = collector.response().headers;
  if (headers.contains("Transfer-Encoding") || headers.contains("Content-Encoding")) return;
  (void)collector.addBody(bytesOf(left));
}

}  // namespace foundation
