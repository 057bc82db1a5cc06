#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <curl/curl.h>

#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/net/URLRequest.h"
#include "foundation/net/private/ResponseCollector.h"

// How this folder uses libcurl; for its own sources only.

namespace foundation {

using CurlEasy = Handle<CURL, curl_easy_cleanup>;
using CurlMulti = Handle<CURLM, curl_multi_cleanup>;
using CurlList = Handle<curl_slist, curl_slist_free_all>;

/// A new multi handle; initialises the library on first use. Throws when memory runs out.
CurlMulti makeCurlMulti();

/// The process's cookies for the origin of `url`, in memory, safe to use from several threads at
/// once. Lives as long as the process.
CURLSH* cookieJarFor(const URL& url);

/// Bytes that moved, and how long none did.
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

/// One request and its answer (a single hop of an exchange) as an easy handle that some multi
/// handle drives. Used by one thread; must not move while it is added to a multi handle, and is
/// removed from it before it is destroyed.
class CurlTransfer {
 public:
  /// Called before each new TLS connection's handshake; false ends the transfer.
  using BeforeTLS = std::function<bool()>;

  /// Fails for a request that cannot be sent: without URL, of another scheme than http and https,
  /// with a line break in its method or a header field.
  static Result<std::unique_ptr<CurlTransfer>> make(URLRequest request, BeforeTLS beforeTLS = {});
  ~CurlTransfer();
  CurlTransfer(const CurlTransfer&) = delete;

  [[nodiscard]] CURL* easy() const { return easy_.get(); }
  [[nodiscard]] const URLRequest& request() const { return request_; }
  [[nodiscard]] ResponseCollector& answer() { return answer_; }
  /// The request that the answer's head redirects to; absent when the answer is to be delivered.
  [[nodiscard]] const std::optional<URLRequest>& nextHop() const { return nextHop_; }
  /// Set by those who drive it: no more bytes are wanted.
  void abandon() { abandoned_ = true; }

  /// To be called when it is added to a multi handle: time counts from here.
  void begin() { idle_.restart(); }
  /// Notices what moved; true when nothing has for the request's idle timeout.
  bool isIdle();
  [[nodiscard]] std::chrono::milliseconds samplingInterval() const { return idle_.interval(); }

  /// To be called once, at the end, with the library's word: why there is no answer; absent when
  /// there is one. May still find an answer, and so a next hop.
  [[nodiscard]] std::optional<Error> conclude(CURLcode result);
  [[nodiscard]] Error idleError() const;
  /// True when a proxy refused a tunnel because it wants a user name and password.
  [[nodiscard]] bool proxyAsksForPassword() const;

 private:
  CurlTransfer(URLRequest request, BeforeTLS beforeTLS);

  struct Callbacks;
  void setUp();
  void setUpTrust();
  void setUpBody();
  void setUpHeaders();
  void setUpCallbacks();
  void sampleActivity();
  void lookForRedirect();
  void prepareForEarlyResponse();
  [[nodiscard]] std::optional<Error> problem(CURLcode result) const;
  [[nodiscard]] bool answerStandsDespite(CURLcode result) const;
  [[nodiscard]] Error errorFor(CURLcode result) const;

  URLRequest request_;
  BeforeTLS beforeTLS_;
  RequestBodyReader reader_;
  ResponseCollector answer_;
  std::optional<URLRequest> nextHop_;
  std::size_t unwanted_ = 0;
  std::uint64_t transferred_ = 0;
  int socket_ = -1;
  /// The same connection once more, which outlives the library's own handle.
  FileDescriptor secondHandle_;
  bool abandoned_ = false;
  IdleClock idle_;
  std::unique_ptr<char[]> errorText_;
  CurlList headers_;
  CurlEasy easy_;
};

}  // namespace foundation
