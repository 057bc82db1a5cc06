#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "foundation/net/URLConnection.h"
#include "foundation/net/private/CurlTransfer.h"

namespace foundation {

/// An asynchronous exchange. Lives until it has ended, even if the connection object does not. All
/// but `start` and `cancel` belongs to the main run loop's thread.
struct URLConnection::Transfer : std::enable_shared_from_this<URLConnection::Transfer> {
  Transfer(URLRequest request, std::shared_ptr<Delegate> delegate)
      : request_(std::move(request)), delegate_(std::move(delegate)) {}

  void start();
  void cancel();

  /// The current hop; null before the start and after the end.
  [[nodiscard]] CurlTransfer* current() const { return current_.get(); }
  /// Tells the delegate what has arrived since the last call.
  void deliver();
  /// The hop has ended, with the library's result or, absent, by its idle timeout.
  void finish(std::optional<CURLcode> result);

 private:
  void begin(URLRequest request);
  void drop();
  void deliverHeader(const HTTPResponse& response);
  bool askAboutTrust();
  void ask(const ProtectionSpace& space);
  void followRedirect();
  void end(const std::optional<Error>& error);
  /// Calls the delegate unless the exchange was cancelled or has ended.
  template <class Call>
  void tell(const Call& call);

  URLRequest request_;
  std::shared_ptr<Delegate> delegate_;
  std::unique_ptr<CurlTransfer> current_;
  int redirects_ = 0;
  bool headerWasDelivered_ = false;
  std::atomic<bool> wasStarted_ = false;
  std::atomic<bool> wasCancelled_ = false;
};

}  // namespace foundation
