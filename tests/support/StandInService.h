#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/LoopbackServer.h"
#include "tests/support/MultipartForm.h"

namespace test {

/// The four calls of a run.
enum class ServiceCall { validate, notes, testers, upload };

struct StandInServiceOptions {
  /// With one the service speaks TLS.
  std::optional<TLSIdentity> identity = std::nullopt;
  int port = 0;
  /// What the requests must carry; absent: any of the right form, the same in each request.
  std::optional<std::string> apiKey = std::nullopt;
  std::optional<std::string> buildSecret = std::nullopt;
  /// False: the .ipa of an upload is not opened, and the fields that describe it are taken as
  /// given.
  bool opensTheIPA = true;
  /// Called with each request and what is wrong with it, on the connection's thread.
  std::function<void(const ReceivedRequest&, const std::vector<std::string>& complaints)> observer =
      {};
};

/// A release service on loopback that is stricter than any real one.
///
/// Each request is compared with what this build of the app must send: method, path, headers, the
/// form's exact bytes and the order of its fields, the uploaded .ipa's own facts (read with other
/// programs) against the fields beside it and against the identifier in the earlier paths. A
/// request with nothing wrong gets the answer set for its call (200, and 202 for the upload), any
/// other one 400 with the complaints. "(null)" in a path, from an app without a readable
/// executable, is taken.
class StandInService {
 public:
  explicit StandInService(StandInServiceOptions options = {});

  /// Replaces the answer of a call; for the requests to come.
  void answer(ServiceCall call, std::string bytes);
  /// The same with a handler of the test's own.
  void answer(ServiceCall call, Handler handler);

  [[nodiscard]] std::string url(std::string_view path = {}) const { return server_->url(path); }
  [[nodiscard]] const LoopbackServer& server() const { return *server_; }

  /// What came in, in order.
  [[nodiscard]] std::vector<ServiceCall> calls() const;
  /// The form of the last request of this call; throws when there was none.
  [[nodiscard]] Form form(ServiceCall call) const;
  /// Everything that was wrong with any request, with the call it was in.
  [[nodiscard]] std::vector<std::string> complaints() const;

 private:
  struct Checked {
    ServiceCall call = ServiceCall::validate;
    Form form;
  };
  void handle(const ReceivedRequest& request, Peer& peer);
  std::vector<std::string> check(const ReceivedRequest& request, Checked& checked);

  StandInServiceOptions options_;
  mutable std::mutex mutex_;
  std::map<ServiceCall, Handler> answers_;
  std::vector<Checked> checked_;
  std::vector<std::string> complaints_;
  /// From the paths of the calls before the upload.
  std::string bundleIdentifier_;
  std::string instanceIdentifier_;
  std::optional<Form> versions_;
  std::unique_ptr<LoopbackServer> server_;
};

/// The call that a request line asks for; nothing when it asks for none.
std::optional<ServiceCall> callOf(const ReceivedRequest& request);
const char* nameOf(ServiceCall call);

}  // namespace test
