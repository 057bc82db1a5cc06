#include "QVTWebClient/QVTWebClientTransaction.h"

#include "QVTWebClient/QVTWebClient.h"
#include "foundation/base/Assertion.h"
#include "foundation/format/PropertyList.h"

using foundation::Value;

namespace {

constexpr std::string_view kSource = "QVTWebClient/QVTWebClientTransaction";
constexpr std::string_view kJSONType = "application/json";
constexpr std::string_view kPropertyListType = "application/x-plist";

/// The first of the two types that occurs anywhere in the header.
std::optional<std::string> knownType(const foundation::HeaderFields& headers) {
  const auto header = headers.find("Content-Type");
  if (header == headers.end()) return std::nullopt;
  for (const std::string_view type : {kPropertyListType, kJSONType}) {
    if (header->second.find(type) != std::string::npos) return std::string(type);
  }
  return std::nullopt;
}

}  // namespace

std::shared_ptr<QVTWebClientTransaction> QVTWebClientTransaction::transactionWithRequest(
    std::shared_ptr<QVTWebRequest> request) {
  return initWithRequest(std::move(request));
}

std::shared_ptr<QVTWebClientTransaction> QVTWebClientTransaction::initWithRequest(
    std::shared_ptr<QVTWebRequest> request) {
  return std::shared_ptr<QVTWebClientTransaction>(new QVTWebClientTransaction(std::move(request)));
}

QVTWebClientTransaction::QVTWebClientTransaction(std::shared_ptr<QVTWebRequest> request)
    : request_(std::move(request)),
      queue_(foundation::DispatchQueue::serial("com.quorvantile.web-transaction")) {}

void QVTWebClientTransaction::startWithCompletionHandler(CompletionHandler handler) {
  queue_.async([self = shared_from_this(), kept = std::move(handler)]() mutable {
    self->completionHandler_ = std::move(kept);
    self->startConnection();
  });
}

void QVTWebClientTransaction::syncStartWithCompletionHandler(CompletionHandler handler) {
  completionHandler_ = std::move(handler);
  foundation::assertThat(!wasStarted_, "!_connection",
                         {.function = "-[QVTWebClientTransaction syncStartWithCompletionHandler:]",
                          .source = kSource});
  syncStartConnection();
}

foundation::URLRequest QVTWebClientTransaction::prepare(std::string_view function) {
  const foundation::AssertionSite site{.function = function, .source = kSource};
  foundation::assertThat(!wasStarted_.exchange(true), "_connection == nil", site);
  foundation::assertThat(request_ != nullptr, "request", site);
  foundation::URLRequest request = request_->URLRequest();
  response_->setRequestURL(request.url);
  return request;
}

void QVTWebClientTransaction::startConnection() {
  foundation::URLRequest request = prepare("-[QVTWebClientTransaction startConnection]");
  if (auto problem = request_->formProblem()) return fail(*std::move(problem));
  connection_ = std::make_unique<foundation::URLConnection>(std::move(request), shared_from_this());
  connection_->start();
}

void QVTWebClientTransaction::syncStartConnection() {
  const foundation::URLRequest request = prepare("-[QVTWebClientTransaction syncStartConnection]");
  if (auto problem = request_->formProblem()) return fail(*std::move(problem));
  auto exchange = foundation::URLConnection::sendSynchronousRequest(request);
  if (exchange.error) response_->setError(std::move(exchange.error));
  if (exchange.data) response_->appendData(exchange.data->bytes());
  if (exchange.response) {
    response_->setStatusCode(static_cast<std::uint64_t>(exchange.response->statusCode));
    response_->setResponseHeaders(std::move(exchange.response->headers));
  }
  complete();
}

std::optional<Value> QVTWebClientTransaction::objectFromReceivedData() {
  const foundation::Bytes bytes = response_->responseData();
  if (bytes.empty()) return std::nullopt;
  if (contentType_ == kJSONType) return QVTWebClient::decodeJSON(bytes);
  if (contentType_ != kPropertyListType) return Value(foundation::Data::copyOf(bytes));
  auto decoded = foundation::PropertyList::parse(bytes);
  if (decoded) return *std::move(decoded);
  if (!response_->error()) response_->setError(decoded.error());
  return std::nullopt;
}

void QVTWebClientTransaction::fail(foundation::Error error) {
  response_->setError(std::move(error));
  complete();
}

void QVTWebClientTransaction::complete() {
  foundation::assertThat(static_cast<bool>(completionHandler_), "_completionHandler",
                         {.function = "-[QVTWebClientTransaction complete]", .source = kSource});
  response_->setBody(objectFromReceivedData());
  // Moved out first, so that the handler cannot cause a second call.
  const CompletionHandler handler = std::exchange(completionHandler_, nullptr);
  handler(response_);
}

void QVTWebClientTransaction::connectionDidReceiveResponse(
    foundation::URLConnection&, const foundation::HTTPResponse& response) {
  queue_.async([self = shared_from_this(), response] {
    self->response_->setStatusCode(static_cast<std::uint64_t>(response.statusCode));
    self->contentType_ = knownType(response.headers);
    self->response_->setResponseHeaders(response.headers);
  });
}

void QVTWebClientTransaction::connectionDidReceiveData(foundation::URLConnection&,
                                                       foundation::Bytes data) {
  queue_.async([self = shared_from_this(), kept = foundation::Data::copyOf(data)] {
    self->response_->appendData(kept.bytes());
  });
}

void QVTWebClientTransaction::connectionDidFailWithError(foundation::URLConnection&,
                                                         const foundation::Error& error) {
  queue_.async([self = shared_from_this(), error] { self->fail(error); });
}

void QVTWebClientTransaction::connectionDidFinishLoading(foundation::URLConnection&) {
  queue_.async([self = shared_from_this()] { self->complete(); });
}

bool QVTWebClientTransaction::connectionCanAuthenticateAgainstProtectionSpace(
    foundation::URLConnection& connection, const foundation::ProtectionSpace& space) {
  if (space.hasServerTrust) {
    bool isTrusted = false;
    queue_.sync([&] {
      const auto& handler = request_->protectionSpaceHandler();
      isTrusted = handler && handler(space);
    });
    return isTrusted;
  }
  connection.cancel();
  connectionDidFailWithError(
      connection,
      foundation::makeError(QVTWebClientErrorDomain, QVTWebClientErrorAuthenticationRefused,
                            "The server asks for authentication (" + space.authenticationMethod +
                                "), which is refused."));
  return false;
}
