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
  /// For TLS; absent for plain HTTP.
  std::optional<TLSIdentity> identity = std::nullopt;
  int port = 0;
  /// What the requests must have; if absent, anything of the right form, the same in each request.
  std::optional<std::string> apiKey = std::nullopt;
  std::optional<std::string> buildSecret = std::nullopt;
  /// If false, the .ipa of an upload is not opened, and the fields that describe it are not
  /// checked.
  bool opensTheIPA = true;
  /// Called with each request and its faults, on the connection's thread.
  std::function<void(const ReceivedRequest&, const std::vector<std::string>& complaints)> observer =
      {};
};

/// A release service on loopback, stricter than any real one.
///
/// Each request is compared with what this build of the app must send: method, path, headers, the
/// form's exact bytes and order of fields, and the uploaded .ipa (read by independent programs)
/// with its fields and with the identifier in the earlier paths. A correct request gets the
/// response set for its call (200, and 202 for the upload), any other 400 with the complaints.
/// "(null)" in a path, from an app without a readable executable, is accepted.
class StandInService {
 public:
  explicit StandInService(StandInServiceOptions options = {});

  /// Sets the response of a call for later requests.
  void answer(ServiceCall call, std::string bytes);
  /// The same with a handler.
  void answer(ServiceCall call, Handler handler);

  [[nodiscard]] std::string url(std::string_view path = {}) const { return server_->url(path); }
  [[nodiscard]] const LoopbackServer& server() const { return *server_; }

  /// In order of arrival.
  [[nodiscard]] std::vector<ServiceCall> calls() const;
  /// The form of the last request of this call; throws when there was none.
  [[nodiscard]] Form form(ServiceCall call) const;
  /// The faults of all requests, each with its call.
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

/// Absent when a request line is none of the calls.
std::optional<ServiceCall> callOf(const ReceivedRequest& request);
const char* nameOf(ServiceCall call);

}  // namespace test
