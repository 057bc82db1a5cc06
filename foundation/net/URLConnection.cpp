#include "foundation/net/URLConnection.h"

#include "foundation/net/private/CurlErrors.h"
#include "foundation/net/private/CurlTransfer.h"
#include "foundation/net/private/HTTPRedirect.h"
#include "foundation/process/Interruption.h"

namespace foundation {

namespace {

/// The library's result for the only transfer; absent until it has ended.
std::optional<CURLcode> resultOf(CURLM* multi) {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
    if (message->msg == CURLMSG_DONE) return message->data.result;
  }
  return std::nullopt;
}

/// Adds a transfer to a multi handle for a scope.
class Addition {
 public:
  Addition(CURLM* multi, CURL* easy)
      : multi_(multi), easy_(easy), wasAdded_(curl_multi_add_handle(multi, easy) == CURLM_OK) {}
  ~Addition() {
    // Otherwise the library would wait for a name lookup to end.
    if (isInterrupted()) curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);
    if (wasAdded_) curl_multi_remove_handle(multi_, easy_);
  }
  Addition(const Addition&) = delete;
  explicit operator bool() const { return wasAdded_; }

 private:
  CURLM* multi_;
  CURL* easy_;
  bool wasAdded_;
};

/// Returns when something has moved, on an interruption of the run, or after the limit.
void wait(CURLM* multi, std::chrono::milliseconds limit) {
  curl_waitfd interruption{
      .fd = interruptionDescriptor(), .events = CURL_WAIT_POLLIN, .revents = 0};
  const unsigned more = interruption.fd >= 0 ? 1 : 0;
  curl_multi_poll(multi, &interruption, more, static_cast<int>(limit.count()), nullptr);
}

std::optional<Error> driveToEnd(CURLM* multi, CurlTransfer& transfer) {
  while (true) {
    throwIfInterrupted();
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK) {
      return transfer.conclude(CURLE_FAILED_INIT);
    }
    if (const auto result = resultOf(multi)) return transfer.conclude(*result);
    if (transfer.isIdle()) return transfer.idleError();
    wait(multi, transfer.samplingInterval());
  }
}

std::optional<Error> run(CURLM* multi, CurlTransfer& transfer) {
  const Addition addition(multi, transfer.easy());
  return addition ? driveToEnd(multi, transfer) : transfer.conclude(CURLE_FAILED_INIT);
}

URLConnection::Exchange failed(Error error) {
  return {std::nullopt, std::nullopt, std::move(error)};
}

}  // namespace

URLConnection::Exchange URLConnection::sendSynchronousRequest(const URLRequest& request) {
  const CurlMulti multi = makeCurlMulti();
  URLRequest current = request;
  for (int hop = 0;; ++hop) {
    auto made = CurlTransfer::make(std::move(current));
    if (!made) return failed(std::move(made.error()));
    CurlTransfer& transfer = **made;
    auto error = run(multi.get(), transfer);
    if (!transfer.nextHop()) {
      if (error) return failed(*std::move(error));
      return {transfer.collector().response(), Data(transfer.collector().takeBody()), std::nullopt};
    }
    if (hop == kMaximumRedirects) return failed(tooManyRedirects(*request.url));
    current = *transfer.nextHop();
  }
}

}  // namespace foundation
