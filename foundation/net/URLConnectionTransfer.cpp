#include "foundation/net/private/URLConnectionTransfer.h"

#include "foundation/base/Assertion.h"
#include "foundation/net/private/HTTPChallenge.h"
#include "foundation/net/private/HTTPRedirect.h"
#include "foundation/net/private/TransferLoop.h"
#include "foundation/queue/RunLoop.h"

namespace foundation {

URLConnection::URLConnection(URLRequest request, std::shared_ptr<Delegate> delegate)
    : transfer_(std::make_shared<Transfer>(std::move(request), std::move(delegate))) {}

URLConnection::URLConnection(std::shared_ptr<Transfer> transfer) : transfer_(std::move(transfer)) {}

URLConnection::~URLConnection() = default;

void URLConnection::start() { transfer_->start(); }

void URLConnection::cancel() { transfer_->cancel(); }

void URLConnection::Transfer::start() {
  assertThat(!wasStarted_.exchange(true), "!wasStarted_",
             {"URLConnection::start", "URLConnectionTransfer.cpp", __LINE__});
  RunLoop::main().perform([self = shared_from_this()] { self->begin(std::move(self->request_)); });
}

void URLConnection::Transfer::cancel() {
  wasCancelled_ = true;
  if (RunLoop::main().isCurrent()) {
    drop();
  } else {
    RunLoop::main().perform([self = shared_from_this()] { self->drop(); });
  }
}

void URLConnection::Transfer::begin(URLRequest request) {
  if (wasCancelled_) return drop();
  auto made = CurlTransfer::make(std::move(request), [this] { return askAboutTrust(); });
  if (!made) return end(made.error());
  current_ = std::move(*made);
  TransferLoop::main().add(shared_from_this());
}

/// Handles cannot be removed inside a callback of the library; there the hop is only marked to end.
void URLConnection::Transfer::drop() {
  if (current_ && TransferLoop::main().isInsideLibrary()) {
    current_->abandon();
    return;
  }
  const auto self = shared_from_this();
  TransferLoop::main().remove(*this);
  current_.reset();
  delegate_.reset();
}

template <class Call>
void URLConnection::Transfer::tell(const Call& call) {
  if (wasCancelled_ || !delegate_) return;
  const auto delegate = delegate_;
  URLConnection connection(shared_from_this());
  call(*delegate, connection);
}

void URLConnection::Transfer::deliver() {
  if (!current_ || current_->nextHop() || !current_->collector().hasHeader()) return;
  const auto self = shared_from_this();
  if (!std::exchange(headerWasDelivered_, true)) deliverHeader(current_->collector().response());
  if (!current_) return;
  const std::string body = current_->collector().takeBody();
  if (body.empty()) return;
  tell([&](Delegate& delegate, URLConnection& connection) {
    delegate.connectionDidReceiveData(connection, bytesOf(body));
  });
}

void URLConnection::Transfer::deliverHeader(const HTTPResponse& response) {
  const HTTPResponse copy = response;  // a delegate that cancels destroys the original
  if (const auto space = challengeOf(*current_->request().url, copy)) ask(*space);
  tell([&](Delegate& delegate, URLConnection& connection) {
    delegate.connectionDidReceiveResponse(connection, copy);
  });
}

void URLConnection::Transfer::ask(const ProtectionSpace& space) {
  tell([&](Delegate& delegate, URLConnection& connection) {
    (void)delegate.connectionCanAuthenticateAgainstProtectionSpace(connection, space);
  });
}

bool URLConnection::Transfer::askAboutTrust() {
  ask(serverTrustSpace(*current_->request().url));
  return !wasCancelled_;
}

void URLConnection::Transfer::finish(std::optional<CURLcode> result) {
  const auto self = shared_from_this();
  if (wasCancelled_) return drop();
  const std::optional<Error> error = result ? current_->conclude(*result) : current_->idleError();
  if (current_->nextHop()) return followRedirect();
  if (error && current_->proxyAsksForPassword()) {
    ask({.host = current_->request().url->host(),
         .port = current_->request().url->port(),
         .authenticationMethod = "NSURLAuthenticationMethodHTTPBasic",
         .realm = {}});
  }
  deliver();
  end(error);
}

void URLConnection::Transfer::followRedirect() {
  if (redirects_++ == kMaximumRedirects) return end(tooManyRedirects(*current_->request().url));
  URLRequest next = *current_->nextHop();
  current_.reset();
  begin(std::move(next));
}

void URLConnection::Transfer::end(const std::optional<Error>& error) {
  const auto self = shared_from_this();
  tell([&](Delegate& delegate, URLConnection& connection) {
    if (error) {
      delegate.connectionDidFailWithError(connection, *error);
    } else {
      delegate.connectionDidFinishLoading(connection);
    }
  });
  current_.reset();
  delegate_.reset();
}

}  // namespace foundation
