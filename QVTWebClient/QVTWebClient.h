#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "QVTWebClient/QVTWebClientTransaction.h"
#include "QVTWebClient/QVTWebRequest.h"
#include "QVTWebClient/QVTWebResponse.h"
#include "foundation/queue/DispatchQueue.h"

/// A client stores it but never calls it.
class QVTPersistenceCacheDelegate {
 public:
  virtual ~QVTPersistenceCacheDelegate() = default;
};

/// An HTTP client with a base URL and headers common to its requests. Thread-safe, but a request
/// must not be started twice at the same time.
///
/// Completions of asynchronous starts run once each on the global queue, in any order. Those of
/// synchronous starts run on the calling thread while the client's queue is held, so they must not
/// start another synchronous request on the same client. The client lives until its last
/// asynchronous exchange has ended.
class QVTWebClient : public std::enable_shared_from_this<QVTWebClient> {
 public:
  /// Empty only where `…ExpectingResponse…` starts allow it; elsewhere that is a programming fault.
  using Completion = QVTWebClientTransaction::CompletionHandler;

  /// Without a base URL, requests that have no URL fail with the transport's error.
  static std::shared_ptr<QVTWebClient> initWithURL(std::optional<foundation::URL> url);
  ~QVTWebClient();
  QVTWebClient(const QVTWebClient&) = delete;
  QVTWebClient& operator=(const QVTWebClient&) = delete;

  [[nodiscard]] const std::optional<foundation::URL>& URL() const { return url_; }
  [[nodiscard]] QVTPersistenceCacheDelegate* cacheDelegate() const { return cacheDelegate_; }
  /// Not owned.
  void setCacheDelegate(QVTPersistenceCacheDelegate* delegate) { cacheDelegate_ = delegate; }

  /// For later requests that do not have the header themselves.
  void addValueForHeader(std::string value, std::string_view header);

  /// Returns at once. The main run loop must be running.
  void startRequestCompletion(std::shared_ptr<QVTWebRequest> request, Completion completion);
  /// A status other than `expected` sets QVTWebClientErrorUnexpectedStatus unless the response
  /// already has an error.
  void startRequestExpectingResponseCompletion(std::shared_ptr<QVTWebRequest> request,
                                               std::uint64_t expected, Completion completion);
  /// Returns after the completion has run.
  void syncStartRequestCompletion(const std::shared_ptr<QVTWebRequest>& request,
                                  const Completion& completion);
  void syncStartRequestExpectingResponseCompletion(const std::shared_ptr<QVTWebRequest>& request,
                                                   std::uint64_t expected, Completion completion);

  /// `path` is resolved against the base URL; a malformed one fails with the transport's error.
  void getPathCompletion(const std::string& path, Completion completion);
  void getURLCompletion(const foundation::URL& url, Completion completion);
  /// Every entry becomes a field of a multipart form.
  void postFormDataToPathCompletion(foundation::Dictionary fields, const std::string& path,
                                    Completion completion);

  /// Escapes a query key or value in two passes: as `foundation::percentEscaped` does, then each of
  /// `!*'"();:@&=+$,/?#[] ` but not the escapes of the first pass.
  static std::string escapeURLString(std::string_view text);
  /// Absent for anything but a JSON array or object.
  static std::optional<foundation::Value> decodeJSON(foundation::Bytes data);
  /// Not implemented: always a programming fault.
  [[noreturn]] static void encodeJSON(const foundation::Value& object);

 private:
  using Transaction = std::shared_ptr<QVTWebClientTransaction>;

  explicit QVTWebClient(std::optional<foundation::URL> url);
  /// Called on the client's queue.
  Transaction prepare(const std::shared_ptr<QVTWebRequest>& request);
  void startPrepared(const std::shared_ptr<QVTWebRequest>& request, Completion completion);

  std::optional<foundation::URL> url_;
  std::set<Transaction> connections_;
  foundation::DispatchQueue queue_;
  foundation::HeaderFields customHeaders_;
  QVTPersistenceCacheDelegate* cacheDelegate_ = nullptr;
};
