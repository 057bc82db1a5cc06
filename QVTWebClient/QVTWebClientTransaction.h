#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "QVTWebClient/QVTWebRequest.h"
#include "QVTWebClient/QVTWebResponse.h"
#include "foundation/net/URLConnection.h"
#include "foundation/queue/DispatchQueue.h"

/// Sends one request and delivers its response exactly once. A second start is a programming fault.
///
/// An asynchronous exchange needs a running main run loop; the transaction's serial queue changes
/// the response and calls the handler. A synchronous one stays on the calling thread, and its body
/// is the raw bytes. An ambiguous form (`QVTWebRequest::formProblem`) is not sent; the response has
/// error QVTWebClientErrorAmbiguousForm.
class QVTWebClientTransaction : public foundation::URLConnection::Delegate,
                                public std::enable_shared_from_this<QVTWebClientTransaction> {
 public:
  using CompletionHandler = std::function<void(const std::shared_ptr<QVTWebResponse>& response)>;

  static std::shared_ptr<QVTWebClientTransaction> transactionWithRequest(
      std::shared_ptr<QVTWebRequest> request);
  static std::shared_ptr<QVTWebClientTransaction> initWithRequest(
      std::shared_ptr<QVTWebRequest> request);

  [[nodiscard]] const std::shared_ptr<QVTWebRequest>& request() const { return request_; }
  [[nodiscard]] const std::shared_ptr<QVTWebResponse>& response() const { return response_; }
  /// "application/json" or "application/x-plist"; absent otherwise and on the synchronous path.
  [[nodiscard]] const std::optional<std::string>& contentType() const { return contentType_; }
  [[nodiscard]] const foundation::DispatchQueue& queue() const { return queue_; }
  /// Empty before the start and once called.
  [[nodiscard]] const CompletionHandler& completionHandler() const { return completionHandler_; }
  void setCompletionHandler(CompletionHandler handler) { completionHandler_ = std::move(handler); }

  /// Returns at once; the handler is called on the transaction's queue.
  void startWithCompletionHandler(CompletionHandler handler);
  /// Returns after the handler has run.
  void syncStartWithCompletionHandler(CompletionHandler handler);

  /// What the starts run once the handler is set; `startConnection` on the transaction's queue.
  void startConnection();
  void syncStartConnection();
  /// The received bytes, decoded when their type is known; absent when there are none or they are
  /// malformed.
  std::optional<foundation::Value> objectFromReceivedData();
  void complete();

  // Called on the main run loop's thread.
  void connectionDidReceiveResponse(foundation::URLConnection& connection,
                                    const foundation::HTTPResponse& response) override;
  void connectionDidReceiveData(foundation::URLConnection& connection,
                                foundation::Bytes data) override;
  void connectionDidFailWithError(foundation::URLConnection& connection,
                                  const foundation::Error& error) override;
  void connectionDidFinishLoading(foundation::URLConnection& connection) override;
  /// Server trust is up to the request's handler, denied without one. Any other challenge ends the
  /// exchange with QVTWebClientErrorAuthenticationRefused.
  bool connectionCanAuthenticateAgainstProtectionSpace(
      foundation::URLConnection& connection, const foundation::ProtectionSpace& space) override;

 private:
  explicit QVTWebClientTransaction(std::shared_ptr<QVTWebRequest> request);
  foundation::URLRequest prepare(std::string_view function);
  void fail(foundation::Error error);

  std::shared_ptr<QVTWebRequest> request_;
  std::shared_ptr<QVTWebResponse> response_ = std::make_shared<QVTWebResponse>();
  std::optional<std::string> contentType_;
  std::unique_ptr<foundation::URLConnection> connection_;
  std::atomic<bool> wasStarted_ = false;
  foundation::DispatchQueue queue_;
  CompletionHandler completionHandler_;
};
