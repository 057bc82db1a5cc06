#include "tests/support/StandInService.h"

#include <stdexcept>
#include <utility>

#include "foundation/base/Text.h"
#include "foundation/format/JSON.h"
#include "tests/support/StandInChecks.h"

namespace test {

namespace {

std::string refusal(const std::vector<std::string>& complaints) {
  const foundation::Value body = foundation::Dictionary{
      {"error", foundation::Dictionary{{"message", foundation::joined(complaints, "; ")}}}};
  return httpAnswer(400, foundation::JSON::encode(body), "Content-Type: application/json\r\n");
}

/// The fields that an earlier call and the upload must have in common.
Form versionsIn(const Form& form) {
  Form versions;
  for (const char* const name : {"app[display_version]", "app[build_version]"}) {
    for (const auto& value : valuesOf(form, name)) versions.push_back(field(name, value));
  }
  return versions;
}

}  // namespace

const char* nameOf(ServiceCall call) {
  constexpr const char* kNames[] = {"validate", "notes", "testers", "upload"};
  return kNames[static_cast<int>(call)];
}

std::optional<ServiceCall> callOf(const ReceivedRequest& request) {
  const auto address = checks::addressOf(request);
  return address ? std::optional(address->call) : std::nullopt;
}

StandInService::StandInService(StandInServiceOptions options) : options_(std::move(options)) {
  for (const ServiceCall call : {ServiceCall::validate, ServiceCall::notes, ServiceCall::testers}) {
    answers_[call] = alwaysAnswer(httpAnswer(200));
  }
  answers_[ServiceCall::upload] = alwaysAnswer(httpAnswer(202));
  ServerOptions server;
  server.identity = options_.identity;
  server.port = options_.port;
  server_ = std::make_unique<LoopbackServer>(
      [this](const ReceivedRequest& request, Peer& peer) { handle(request, peer); },
      std::move(server));
}

void StandInService::answer(ServiceCall call, std::string bytes) {
  answer(call, alwaysAnswer(std::move(bytes)));
}

void StandInService::answer(ServiceCall call, Handler handler) {
  const std::lock_guard lock(mutex_);
  answers_[call] = std::move(handler);
}

std::vector<ServiceCall> StandInService::calls() const {
  const std::lock_guard lock(mutex_);
  std::vector<ServiceCall> calls;
  for (const Checked& checked : checked_) calls.push_back(checked.call);
  return calls;
}

Form StandInService::form(ServiceCall call) const {
  const std::lock_guard lock(mutex_);
  const Form* found = nullptr;
  for (const Checked& checked : checked_) {
    if (checked.call == call) found = &checked.form;
  }
  if (!found) throw std::runtime_error(std::string("no request of kind ") + nameOf(call));
  return *found;
}

std::vector<std::string> StandInService::complaints() const {
  const std::lock_guard lock(mutex_);
  return complaints_;
}

void StandInService::handle(const ReceivedRequest& request, Peer& peer) {
  Checked checked;
  std::vector<std::string> complaints;
  Handler answer;
  {
    const std::lock_guard lock(mutex_);
    try {
      complaints = check(request, checked);
    } catch (const std::exception& exception) {
      complaints = {exception.what()};
    }
    for (const auto& complaint : complaints)
      complaints_.push_back(request.target + ": " + complaint);
    answer = answers_[checked.call];
    checked_.push_back(std::move(checked));
  }
  if (options_.observer) options_.observer(request, complaints);
  if (complaints.empty()) return answer(request, peer);
  peer.send(refusal(complaints));
}

std::vector<std::string> StandInService::check(const ReceivedRequest& request, Checked& checked) {
  const auto address = checks::addressOf(request);
  if (!address) return {"no such call: " + request.method + " " + request.target};
  checked.call = address->call;
  if (!request.complete) return {"the request ended before its time"};
  auto complaints = checks::headers(request, address->call, options_);
  if (address->call == ServiceCall::validate) {
    instanceIdentifier_ = address->instanceIdentifier;
    bundleIdentifier_ = address->bundleIdentifier;
    versions_.reset();
    return complaints;
  }
  checked.form = parseForm(request.body());
  const auto add = [&](const std::vector<std::string>& more) {
    complaints.insert(complaints.end(), more.begin(), more.end());
  };
  if (address->bundleIdentifier != bundleIdentifier_) add({"not the app that was validated"});
  const Form versions = versionsIn(checked.form);
  if (versions_ && *versions_ != versions) add({"not the versions of the calls before"});
  versions_ = versions;
  if (address->call == ServiceCall::upload) {
    std::optional<IPAFacts> facts;
    if (options_.opensTheIPA && !checked.form.empty()) facts = factsOf(checked.form.back().value);
    add(checks::upload(checked.form, {address->call, bundleIdentifier_, instanceIdentifier_},
                       facts ? &*facts : nullptr));
  } else {
    if (address->instanceIdentifier != instanceIdentifier_) add({"not the build validated"});
    add(checks::smallForm(checked.form, address->call));
  }
  return complaints;
}

}  // namespace test
