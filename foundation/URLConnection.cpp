#include "foundation/URLConnection.h"

#include "foundation/CurlErrors.h"
#include "foundation/CurlTransfer.h"
#include "foundation/HTTPRedirect.h"

namespace foundation {

namespace {

/// The library's word on a transfer that has ended; absent while it goes on.
std::optional<CURLcode> resultOf(CURLM* multi) {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
    if (message->msg == CURLMSG_DONE) return message->data.result;
  }
  return std::nullopt;
}

std::optional<Error> driveToEnd(CURLM* multi, CurlTransfer& transfer) {
  while (true) {
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK) {
      return transfer.conclude(CURLE_FAILED_INIT);
    }
    if (const auto result = resultOf(multi)) return transfer.conclude(*result);
    if (transfer.isIdle()) return transfer.idleError();
    const auto wait = static_cast<int>(transfer.samplingInterval().count());
    curl_multi_poll(multi, nullptr, 0, wait, nullptr);
  }
}

std::optional<Error> run(CURLM* multi, CurlTransfer& transfer) {
  if (curl_multi_add_handle(multi, transfer.easy()) != CURLM_OK) {
    return transfer.conclude(CURLE_FAILED_INIT);
  }
  auto error = driveToEnd(multi, transfer);
  curl_multi_remove_handle(multi, transfer.easy());
  return error;
}

URLConnection::Exchange failed(Error error) {
  URLConnection::Exchange exchange;
  exchange.error = std::move(error);
  return exchange;
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
      return {transfer.answer().response(), Data(transfer.answer().takeBody()), std::nullopt};
    }
    if (hop == kMaximumRedirects) return failed(tooManyRedirects(*request.url));
    current = *transfer.nextHop();
  }
}

}  // namespace foundation
