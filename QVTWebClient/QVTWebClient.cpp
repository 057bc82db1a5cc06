#include "QVTWebClient/QVTWebClient.h"

#include "foundation/base/Assertion.h"
#include "foundation/base/URL.h"
#include "foundation/format/JSON.h"

namespace {

constexpr std::string_view kSource = "QVTWebClient/QVTWebClient";

void requireCompletion(const QVTWebClient::Completion& completion, std::string_view function) {
  foundation::assertThat(static_cast<bool>(completion), "completion",
                         {.function = function, .source = kSource});
}

/// Checks the status, then calls `completion` unless it is empty.
QVTWebClient::Completion expecting(std::uint64_t expected, QVTWebClient::Completion completion) {
  return [expected,
          completion = std::move(completion)](const std::shared_ptr<QVTWebResponse>& response) {
    if (!completion) return;
    if (!response->error() && response->statusCode() != expected) {
      response->setError(foundation::Error{.domain = std::string(QVTWebClientErrorDomain),
                                           .code = QVTWebClientErrorUnexpectedStatus,
                                           .userInfo = {}});
    }
    completion(response);
  };
}

}  // namespace

std::shared_ptr<QVTWebClient> QVTWebClient::initWithURL(std::optional<foundation::URL> url) {
  return std::shared_ptr<QVTWebClient>(new QVTWebClient(std::move(url)));
}

QVTWebClient::QVTWebClient(std::optional<foundation::URL> url)
    : url_(std::move(url)),
      queue_(foundation::DispatchQueue::serial("com.quorvantile.rest-client")),
      customHeaders_{{"Accept", "application/json, application/x-plist"}} {}

QVTWebClient::~QVTWebClient() {
  // The last exchange may release the client on the client's own queue.
  queue_.syncOrInline([this] {
    url_.reset();
    connections_.clear();
    customHeaders_.clear();
  });
}

void QVTWebClient::addValueForHeader(std::string value, std::string_view header) {
  queue_.sync([&] { customHeaders_.insert_or_assign(std::string(header), std::move(value)); });
}

QVTWebClient::Transaction QVTWebClient::prepare(const std::shared_ptr<QVTWebRequest>& request) {
  if (!request->URL() && url_) {
    request->setURL(foundation::URL::withStringRelativeToURL(request->path(), *url_));
  }
  request->addHeaders(customHeaders_);
  auto transaction = QVTWebClientTransaction::transactionWithRequest(request);
  connections_.insert(transaction);
  return transaction;
}

void QVTWebClient::startPrepared(const std::shared_ptr<QVTWebRequest>& request,
                                 Completion completion) {
  const Transaction transaction = prepare(request);
  // Weak, since the transaction stores this handler; connections_ keeps it alive meanwhile.
  const std::weak_ptr<QVTWebClientTransaction> started = transaction;
  transaction->startWithCompletionHandler(
      [self = shared_from_this(), started,
       completion = std::move(completion)](const std::shared_ptr<QVTWebResponse>& response) {
        foundation::DispatchQueue::global().async(
            [self, transaction = started.lock(), completion, response] {
              completion(response);
              self->queue_.async([self, transaction] { self->connections_.erase(transaction); });
            });
      });
}

void QVTWebClient::startRequestCompletion(std::shared_ptr<QVTWebRequest> request,
                                          Completion completion) {
  requireCompletion(completion, "-[QVTWebClient startRequest:completion:]");
  queue_.async([self = shared_from_this(), request = std::move(request),
                completion = std::move(completion)] { self->startPrepared(request, completion); });
}

void QVTWebClient::startRequestExpectingResponseCompletion(std::shared_ptr<QVTWebRequest> request,
                                                           std::uint64_t expected,
                                                           Completion completion) {
  startRequestCompletion(std::move(request), expecting(expected, std::move(completion)));
}

void QVTWebClient::syncStartRequestCompletion(const std::shared_ptr<QVTWebRequest>& request,
                                              const Completion& completion) {
  requireCompletion(completion, "-[QVTWebClient syncStartRequest:completion:]");
  queue_.sync([&] {
    const Transaction transaction = prepare(request);
    transaction->syncStartWithCompletionHandler(
        [&](const std::shared_ptr<QVTWebResponse>& response) {
          completion(response);
          connections_.erase(transaction);
        });
  });
}

void QVTWebClient::syncStartRequestExpectingResponseCompletion(
    const std::shared_ptr<QVTWebRequest>& request, std::uint64_t expected, Completion completion) {
  syncStartRequestCompletion(request, expecting(expected, std::move(completion)));
}

void QVTWebClient::getPathCompletion(const std::string& path, Completion completion) {
  const auto url = url_ ? foundation::URL::withStringRelativeToURL(path, *url_)
                        : foundation::URL::withString(path);
  if (url) return getURLCompletion(*url, std::move(completion));
  startRequestCompletion(QVTWebRequest::requestWithMethodPath("GET", path), std::move(completion));
}

void QVTWebClient::getURLCompletion(const foundation::URL& url, Completion completion) {
  queue_.async([self = shared_from_this(), url, completion = std::move(completion)] {
    auto request = QVTWebRequest::requestWithMethodPath("GET", url.relativePath());
    request->setURL(url);
    self->startRequestCompletion(std::move(request), completion);
  });
}

void QVTWebClient::postFormDataToPathCompletion(foundation::Dictionary fields,
                                                const std::string& path, Completion completion) {
  queue_.async([self = shared_from_this(), fields = std::move(fields), path,
                completion = std::move(completion)] {
    auto request = QVTWebRequest::requestWithMethodPath("POST", path);
    request->setFormData(fields);
    self->startRequestCompletion(std::move(request), completion);
  });
}

std::string QVTWebClient::escapeURLString(std::string_view text) {
  return foundation::percentEscapedKeepingPercent(foundation::percentEscaped(text),
                                                  "!*'\"();:@&=+$,/?#[] ");
}

std::optional<foundation::Value> QVTWebClient::decodeJSON(foundation::Bytes data) {
  return foundation::JSON::decode(data).value();
}

void QVTWebClient::encodeJSON(const foundation::Value&) {
  foundation::assertionFailed("0 && \"encodeJSON: isn't implemented yet\"",
                              {.function = "+[QVTWebClient encodeJSON:]", .source = kSource});
}
