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

/// Kept by a client and handed out again; the client asks nothing of it.
class QVTPersistenceCacheDelegate {
 public:
  virtual ~QVTPersistenceCacheDelegate() = default;
};

/// An HTTP client bound to one base URL, with headers that all its requests carry. Operations are
/// safe from any thread; a request is for one start at a time.
///
/// Completions of asynchronous starts run on the global queue, never on the main thread, in no set
/// order, once each. Those of synchronous starts run on the calling thread while the client's queue
/// is held, so they must not start another request on the same client synchronously. The client
/// lives until its last asynchronous exchange has ended, even when nobody else keeps it.
class QVTWebClient : public std::enable_shared_from_this<QVTWebClient> {
 public:
  /// Required by `startRequest…` and `syncStartRequest…`; the `expectingResponse` forms accept
  /// none.
  using Completion = QVTWebClientTransaction::CompletionHandler;

  /// Without a base URL every request that has no URL of its own fails with the transport's error.
  static std::shared_ptr<QVTWebClient> initWithURL(std::optional<foundation::URL> url);
  ~QVTWebClient();
  QVTWebClient(const QVTWebClient&) = delete;
  QVTWebClient& operator=(const QVTWebClient&) = delete;

  [[nodiscard]] const std::optional<foundation::URL>& URL() const { return url_; }
  [[nodiscard]] QVTPersistenceCacheDelegate* cacheDelegate() const { return cacheDelegate_; }
  /// Not owned.
  void setCacheDelegate(QVTPersistenceCacheDelegate* delegate) { cacheDelegate_ = delegate; }

  /// Sets a header for all later requests that do not have it themselves.
  void addValueForHeader(std::string value, std::string_view header);

  /// Returns at once. The main run loop must be running.
  void startRequestCompletion(std::shared_ptr<QVTWebRequest> request, Completion completion);
  /// A status other than `expected` becomes error -1 of the response, unless it has an error
  /// already.
  void startRequestExpectingResponseCompletion(std::shared_ptr<QVTWebRequest> request,
                                               std::uint64_t expected, Completion completion);
  /// Returns after the completion has run.
  void syncStartRequestCompletion(const std::shared_ptr<QVTWebRequest>& request,
                                  const Completion& completion);
  void syncStartRequestExpectingResponseCompletion(const std::shared_ptr<QVTWebRequest>& request,
                                                   std::uint64_t expected, Completion completion);

  /// The path is resolved against the base URL; one that is no URL fails as the transport says.
  void getPathCompletion(const std::string& path, Completion completion);
  void getURLCompletion(const foundation::URL& url, Completion completion);
  /// Every entry becomes a field of a multipart form.
  void postFormDataToPathCompletion(foundation::Dictionary fields, const std::string& path,
                                    Completion completion);

  static std::string escapeURLString(std::string_view text);
  /// Absent for anything but a JSON array or object.
  static std::optional<foundation::Value> decodeJSON(foundation::Bytes data);
  /// Always a programming fault: there is no encoder.
  [[noreturn]] static void encodeJSON(const foundation::Value& object);

 private:
  using Transaction = std::shared_ptr<QVTWebClientTransaction>;

  explicit QVTWebClient(std::optional<foundation::URL> url);
  /// On the client's queue.
  Transaction prepare(const std::shared_ptr<QVTWebRequest>& request);
  void startPrepared(const std::shared_ptr<QVTWebRequest>& request, Completion completion);

  std::optional<foundation::URL> url_;
  std::set<Transaction> connections_;
  foundation::DispatchQueue queue_;
  foundation::HeaderFields customHeaders_;
  QVTPersistenceCacheDelegate* cacheDelegate_ = nullptr;
};
