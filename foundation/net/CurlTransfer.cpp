#include "foundation/net/private/CurlTransfer.h"

#include <algorithm>

#include <fcntl.h>

#include "foundation/host/SocketActivity.h"
#include "foundation/net/Proxy.h"
#include "foundation/net/private/CurlErrors.h"
#include "foundation/net/private/CurlRequest.h"
#include "foundation/net/private/EarlyResponse.h"
#include "foundation/net/private/HTTPRedirect.h"
#include "foundation/net/private/OpenSockets.h"

namespace foundation {

namespace {

/// Most bytes of a redirect's own body that are read in order to reuse its connection.
constexpr std::size_t kMaximumUnwanted = std::size_t{64} * 1024;

}  // namespace

void IdleClock::sample(std::uint64_t total) {
  if (total == total_) return;
  total_ = total;
  restart();
}

std::chrono::milliseconds IdleClock::interval() const {
  using std::chrono::milliseconds;
  return std::clamp(limit_ / 8, milliseconds(1), milliseconds(250));
}

/// Called by the library, through which no exception (memory running out) may pass.
struct CurlTransfer::Callbacks {
  static std::size_t header(char* data, std::size_t, std::size_t size, void* self) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    long status = 0;
    curl_easy_getinfo(transfer.easy(), CURLINFO_RESPONSE_CODE, &status);
    const bool hadHeader = transfer.collector_.hasHeader();
    if (transfer.abandoned_ || !transfer.collector_.addHeaderLine({data, size}, status)) return 0;
    if (transfer.collector_.hasHeader() && !hadHeader) transfer.lookForRedirect();
    return size;
  }

  static std::size_t body(char* data, std::size_t, std::size_t size, void* self) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    if (transfer.abandoned_) return 0;
    if (transfer.nextHop_) {
      transfer.unwanted_ += size;
      return transfer.unwanted_ <= kMaximumUnwanted ? size : 0;
    }
    return transfer.collector_.addBody(bytesOf({data, size})) ? size : 0;
  }

  static std::size_t read(char* out, std::size_t, std::size_t size, void* self) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    if (transfer.abandoned_) return CURL_READFUNC_ABORT;
    return transfer.reader_.read(std::as_writable_bytes(std::span(out, size)));
  }

  static int seek(void* self, curl_off_t offset, int origin) noexcept {
    if (offset != 0 || origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
    static_cast<CurlTransfer*>(self)->reader_.rewind();
    return CURL_SEEKFUNC_OK;
  }

  static int progress(void* self, curl_off_t, curl_off_t down, curl_off_t, curl_off_t up) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    transfer.transferred_ = static_cast<std::uint64_t>(down + up);
    return transfer.abandoned_ ? 1 : 0;
  }

  static curl_socket_t openSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept {
    const int socket = OpenSockets::open(address->family, address->socktype, address->protocol);
    static_cast<CurlTransfer*>(self)->socket_ = socket;
    return socket;
  }

  static int closeSocket(void*, curl_socket_t socket) noexcept {
    return OpenSockets::close(socket);
  }

  /// The connection is ready and the request goes out next.
  static int beforeRequest(void* self, char* remoteAddress, char*, int remotePort,
                           int localPort) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    transfer.socket_ = OpenSockets::find(
        {.remoteAddress = remoteAddress, .remotePort = remotePort, .localPort = localPort});
    if (transfer.request_.body->size() != 0) transfer.prepareForEarlyResponse();
    return CURL_PREREQFUNC_OK;
  }

  static CURLcode beforeTLS(CURL* easy, void*, void* self) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    // Bytes can move from here on, so only the idle clock counts.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 0x7fffffffL);
    const bool goesOn = !transfer.beforeTLS_ || transfer.beforeTLS_();
    transfer.idle_.restart();
    return goesOn && !transfer.abandoned_ ? CURLE_OK : CURLE_ABORTED_BY_CALLBACK;
  }
};

CurlTransfer::CurlTransfer(URLRequest request, BeforeTLS beforeTLS)
    : request_(std::move(request)),
      beforeTLS_(std::move(beforeTLS)),
      reader_(request_.body ? *request_.body : request_.body.emplace()),
      idle_(request_.idleTimeout),
      errorText_(std::make_unique<char[]>(CURL_ERROR_SIZE)),
      easy_(curl_easy_init()) {}

CurlTransfer::~CurlTransfer() = default;

Result<std::unique_ptr<CurlTransfer>> CurlTransfer::make(URLRequest request, BeforeTLS beforeTLS) {
  if (auto error = whyNotSendable(request)) return *std::move(error);
  std::unique_ptr<CurlTransfer> transfer(
      new CurlTransfer(std::move(request), std::move(beforeTLS)));
  if (!transfer->easy()) throw std::bad_alloc();
  transfer->headers_ = setOptions(transfer->easy(), transfer->request_);
  transfer->setCallbacks();
  return transfer;
}

void CurlTransfer::setCallbacks() {
  CURL* const handle = easy();
  setOption(handle, CURLOPT_ERRORBUFFER, errorText_.get());
  setOption(handle, CURLOPT_HEADERFUNCTION, &Callbacks::header);
  setOption(handle, CURLOPT_HEADERDATA, this);
  setOption(handle, CURLOPT_WRITEFUNCTION, &Callbacks::body);
  setOption(handle, CURLOPT_WRITEDATA, this);
  setOption(handle, CURLOPT_READFUNCTION, &Callbacks::read);
  setOption(handle, CURLOPT_READDATA, this);
  setOption(handle, CURLOPT_SEEKFUNCTION, &Callbacks::seek);
  setOption(handle, CURLOPT_SEEKDATA, this);
  setOption(handle, CURLOPT_XFERINFOFUNCTION, &Callbacks::progress);
  setOption(handle, CURLOPT_XFERINFODATA, this);
  setOption(handle, CURLOPT_NOPROGRESS, 0L);
  setOption(handle, CURLOPT_OPENSOCKETFUNCTION, &Callbacks::openSocket);
  setOption(handle, CURLOPT_OPENSOCKETDATA, this);
  setOption(handle, CURLOPT_CLOSESOCKETFUNCTION, &Callbacks::closeSocket);
  setOption(handle, CURLOPT_PREREQFUNCTION, &Callbacks::beforeRequest);
  setOption(handle, CURLOPT_PREREQDATA, this);
  setOption(handle, CURLOPT_SSL_CTX_FUNCTION, &Callbacks::beforeTLS);
  setOption(handle, CURLOPT_SSL_CTX_DATA, this);
}

/// The system's count is better where there is one: bytes in its buffers have not moved yet, and a
/// part of a header line has.
bool CurlTransfer::isIdle() {
  const std::uint64_t system = socket_ < 0 ? 0 : socketActivity(socket_);
  idle_.sample(system != 0 ? system : transferred_);
  return idle_.isOver();
}

void CurlTransfer::lookForRedirect() {
  nextHop_ = requestAfterRedirect(request_, collector_.response());
}

void CurlTransfer::prepareForEarlyResponse() {
  curl_tlssessioninfo* session = nullptr;
  curl_easy_getinfo(easy(), CURLINFO_TLS_SSL_PTR, &session);
  if (session && session->backend == CURLSSLBACKEND_OPENSSL && session->internals) {
    hideFailedWrites(static_cast<SSL*>(session->internals), socket_);
  } else if (socket_ >= 0) {
    duplicate_.reset(fcntl(socket_, F_DUPFD_CLOEXEC, 0));
  }
}

std::optional<Error> CurlTransfer::conclude(CURLcode result) {
  if (result == CURLE_SEND_ERROR && duplicate_ && !collector_.hasHeader()) {
    rescueResponse(duplicate_.get(), collector_);
    if (collector_.hasHeader()) lookForRedirect();
  }
  duplicate_.reset();
  return problem(result);
}

std::optional<Error> CurlTransfer::problem(CURLcode result) const {
  const std::string place = placeOf(*request_.url);
  switch (collector_.refusal()) {
    case ResponseCollector::Refusal::headerTooLong:
      return urlError(kURLErrorBadServerResponse, place + " sent headers without end");
    case ResponseCollector::Refusal::bodyTooLong:
      return urlError(kURLErrorDataLengthExceedsMaximum,
                      place + " sent a body of more than 16 MiB");
    case ResponseCollector::Refusal::noMemory:
      return urlError(kURLErrorDataLengthExceedsMaximum,
                      place + " sent a body that does not fit into memory");
    case ResponseCollector::Refusal::none:
      break;
  }
  if (isComplete(result)) return std::nullopt;
  return errorFor(result);
}

/// Once the headers have arrived, failing to send the rest of the body does not matter.
bool CurlTransfer::isComplete(CURLcode result) const {
  if (!collector_.hasHeader()) return false;
  if (result == CURLE_OK || result == CURLE_SEND_ERROR) return true;
  curl_off_t sent = 0;
  curl_easy_getinfo(easy(), CURLINFO_SIZE_UPLOAD_T, &sent);
  const bool wasSending = static_cast<std::uint64_t>(sent) < request_.body->size();
  return wasSending && (result == CURLE_RECV_ERROR || result == CURLE_PARTIAL_FILE);
}

Error CurlTransfer::errorFor(CURLcode result) const {
  long systemError = 0;
  long tunnelStatus = 0;
  curl_easy_getinfo(easy(), CURLINFO_OS_ERRNO, &systemError);
  curl_easy_getinfo(easy(), CURLINFO_HTTP_CONNECTCODE, &tunnelStatus);
  return transportError({.place = placeOf(*request_.url),
                         .proxy = proxyPlaceFor(*request_.url).value_or(""),
                         .result = result,
                         .systemError = static_cast<int>(systemError),
                         .tunnelStatus = tunnelStatus,
                         .detail = errorText_.get()});
}

Error CurlTransfer::idleError() const {
  return urlError(kURLErrorTimedOut, "no byte to or from " + placeOf(*request_.url) + " for " +
                                         std::to_string(request_.idleTimeout.count()) + " ms");
}

bool CurlTransfer::proxyAsksForPassword() const {
  long tunnelStatus = 0;
  long schemes = 0;
  curl_easy_getinfo(easy(), CURLINFO_HTTP_CONNECTCODE, &tunnelStatus);
  curl_easy_getinfo(easy(), CURLINFO_PROXYAUTH_AVAIL, &schemes);
  return tunnelStatus == 407 && schemes != 0;
}

}  // namespace foundation
