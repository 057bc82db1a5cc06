#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/net/URLRequest.h"
#include "foundation/net/private/CurlLibrary.h"
#include "foundation/net/private/ResponseCollector.h"

namespace foundation {

/// Tells how long no byte has moved.
class IdleClock {
 public:
  using Clock = std::chrono::steady_clock;

  explicit IdleClock(std::chrono::milliseconds limit) : limit_(limit) {}
  void restart() { lastMove_ = Clock::now(); }
  /// `total` is any number that changes when bytes move.
  void sample(std::uint64_t total);
  [[nodiscard]] bool isOver() const { return Clock::now() - lastMove_ >= limit_; }
  /// How long to wait at most until the next sample.
  [[nodiscard]] std::chrono::milliseconds interval() const;

 private:
  std::chrono::milliseconds limit_;
  Clock::time_point lastMove_ = Clock::now();
  std::uint64_t total_ = 0;
};

/// One request and its response (a single hop of an exchange) as an easy handle that a multi handle
/// drives. Used by one thread; must be removed from the multi handle before it is destroyed.
class CurlTransfer {
 public:
  /// Called before each new TLS connection's handshake; false ends the transfer.
  using BeforeTLS = std::function<bool()>;

  /// Fails for a request that cannot be sent; see `whyNotSendable`.
  static Result<std::unique_ptr<CurlTransfer>> make(URLRequest request, BeforeTLS beforeTLS = {});
  ~CurlTransfer();
  CurlTransfer(const CurlTransfer&) = delete;

  [[nodiscard]] CURL* easy() const { return easy_.get(); }
  [[nodiscard]] const URLRequest& request() const { return request_; }
  [[nodiscard]] ResponseCollector& collector() { return collector_; }
  /// The request that the response redirects to; absent when the response is to be delivered.
  [[nodiscard]] const std::optional<URLRequest>& nextHop() const { return nextHop_; }
  /// Ends the transfer at the library's next callback.
  void abandon() { abandoned_ = true; }

  /// To be called when it is added to a multi handle: time counts from here.
  void begin() { idle_.restart(); }
  /// True when no byte has moved for the request's idle timeout. To be called every
  /// `samplingInterval`.
  bool isIdle();
  [[nodiscard]] std::chrono::milliseconds samplingInterval() const { return idle_.interval(); }

  /// To be called once, at the end, with the library's result. Says why there is no response;
  /// absent when there is one. May still find an early response, and with it a next hop.
  [[nodiscard]] std::optional<Error> conclude(CURLcode result);
  [[nodiscard]] Error idleError() const;
  /// True when a proxy refused a tunnel because it wants a user name and password.
  [[nodiscard]] bool proxyAsksForPassword() const;

 private:
  CurlTransfer(URLRequest request, BeforeTLS beforeTLS);

  struct Callbacks;
  void setCallbacks();
  void lookForRedirect();
  void prepareForEarlyResponse();
  [[nodiscard]] std::optional<Error> problem(CURLcode result) const;
  [[nodiscard]] bool isComplete(CURLcode result) const;
  [[nodiscard]] Error errorFor(CURLcode result) const;

  URLRequest request_;
  BeforeTLS beforeTLS_;
  RequestBodyReader reader_;
  ResponseCollector collector_;
  std::optional<URLRequest> nextHop_;
  std::size_t unwanted_ = 0;
  std::uint64_t transferred_ = 0;
  int socket_ = -1;
  /// The same connection once more, open after the library has closed it.
  FileDescriptor duplicate_;
  bool abandoned_ = false;
  IdleClock idle_;
  std::unique_ptr<char[]> errorText_;
  CurlList headers_;
  CurlEasy easy_;
};

}  // namespace foundation
