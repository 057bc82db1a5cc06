#include "tests/support/StandInChecks.h"

#include <algorithm>
#include <ctime>
#include <regex>
#include <set>
#include <stdexcept>

#include "foundation/base/Text.h"
#include "tests/support/IPAFacts.h"

namespace test::checks {

namespace {

using Complaints = std::vector<std::string>;

bool isHexadecimal(const std::string& text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

/// The header's value is `expected` or, if that is absent, satisfies `fits`.
void require(Complaints& complaints, const ReceivedRequest& request, const char* name,
             const std::function<bool(const std::string&)>& fits) {
  const auto value = request.header(name);
  if (!value) {
    complaints.push_back(std::string("no header ") + name);
  } else if (!fits(*value)) {
    complaints.push_back(std::string("header ") + name + " is " + *value);
  }
}

std::function<bool(const std::string&)> equals(std::string expected) {
  return [expected = std::move(expected)](const std::string& value) { return value == expected; };
}

/// Only the expected headers, and none twice.
void requireNoOthers(Complaints& complaints, const ReceivedRequest& request,
                     std::set<std::string> allowed) {
  for (const auto& [name, value] : request.headerLines) {
    if (allowed.erase(foundation::lowercased(name)) == 0) {
      complaints.push_back("unexpected header " + name + ": " + value);
    }
  }
}

void compare(Complaints& complaints, const Form& expected, const Form& received) {
  for (std::size_t i = 0; i < std::max(expected.size(), received.size()); ++i) {
    if (i < expected.size() && i < received.size() && expected[i] == received[i]) continue;
    const auto shown = [i](const Form& form) {
      return i < form.size() ? describe({form[i]}) : std::string("nothing\n");
    };
    complaints.push_back("field " + std::to_string(i + 1) + " should be " + shown(expected) +
                         " and is " + shown(received));
    return;
  }
}

void addIfText(Form& form, const char* name, const foundation::Dictionary& info, const char* key) {
  if (const auto text = foundation::stringAt(info, key)) form.push_back(field(name, *text));
}

std::string familiesIn(const foundation::Dictionary& info) {
  std::string names;
  const auto* const families = foundation::arrayAt(info, "UIDeviceFamily");
  for (const auto& family : families ? *families : foundation::Array{}) {
    const auto* const number = family.integer();
    names += names.empty() ? "" : ",";
    names += number && *number == 1 ? "iPhone" : number && *number == 2 ? "iPad" : "unknown";
  }
  return names;
}

void addSlices(Form& form, const IPAFacts& facts) {
  std::string names;
  for (const auto& [architecture, uuid] : facts.slices) {
    form.push_back(field("app[slices][][arch]", architecture));
    form.push_back(field("app[slices][][uuid]", uuid));
    names += (names.empty() ? "" : ",") + architecture;
  }
  form.push_back(field("distribution[platform_attributes][architectures]", names));
}

/// The expected form. `devices` may be in any order; time and notifications are the sender's
/// choice.
Form expectedUpload(const IPAFacts& facts, const Form& received,
                    const std::vector<std::string>& devices) {
  const auto sent = [&](const char* name) {
    const auto values = valuesOf(received, name);
    return field(name, values.empty() ? "(missing)" : values.front());
  };
  const auto yesOrNo = [](bool flag) { return flag ? "true" : "false"; };
  Form form;
  addIfText(form, "app[display_version]", facts.info, "CFBundleShortVersionString");
  addIfText(form, "app[build_version]", facts.info, "CFBundleVersion");
  for (const auto& device : devices) form.push_back(field("distribution[devices][][udid]", device));
  form.push_back(sent("distribution[built_at]"));
  form.push_back(field("app[type]", "ios_app"));
  form.push_back(field("distribution[platform_attributes][enterprise]",
                       yesOrNo(foundation::boolAt(facts.profile, "ProvisionsAllDevices"))));
  form.push_back(field("distribution[platform_attributes][devices]", familiesIn(facts.info)));
  addIfText(form, "distribution[platform_attributes][min_os]", facts.info, "MinimumOSVersion");
  form.push_back(field("distribution[platform_attributes][newsstand]",
                       yesOrNo(foundation::boolAt(facts.info, "UINewsstandapp"))));
  addSlices(form, facts);
  form.push_back(field("app[instance_identifier]", facts.instanceIdentifier));
  form.push_back(sent("send_notifications"));
  form.push_back(received.back());
  return form;
}

void checkSendersChoices(Complaints& complaints, const Form& form) {
  const auto builtAt = valuesOf(form, "distribution[built_at]");
  constexpr long long kLongest = 600;
  const long long now = std::time(nullptr);
  if (builtAt.size() != 1 || builtAt[0].empty() ||
      builtAt[0].find_first_not_of("0123456789") != std::string::npos ||
      std::abs(std::stoll(builtAt[0]) - now) > kLongest) {
    complaints.emplace_back("distribution[built_at] is not about now");
  }
  const auto notify = valuesOf(form, "send_notifications");
  if (notify.size() != 1 || (notify[0] != "true" && notify[0] != "suppress")) {
    complaints.emplace_back("send_notifications is neither true nor suppress");
  }
}

void checkFile(Complaints& complaints, const Form& form) {
  static const std::regex kName("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.ipa");
  const FormPart& file = form.back();
  if (file.name != "distribution[file]" || !file.fileName || file.type != "application/zip") {
    complaints.emplace_back("the last part is not distribution[file]");
  } else if (!std::regex_match(*file.fileName, kName)) {
    complaints.push_back("the file is called " + *file.fileName);
  }
}

void checkAgainstIPA(Complaints& complaints, const Form& form, const Address& about,
                     const IPAFacts& facts) {
  const auto devices = valuesOf(form, "distribution[devices][][udid]");
  if (devices.size() != facts.devices.size() ||
      std::set(devices.begin(), devices.end()) != facts.devices) {
    complaints.emplace_back("the devices are not those of the profile");
  }
  compare(complaints, expectedUpload(facts, form, devices), form);
  if (facts.instanceIdentifier != about.instanceIdentifier) {
    complaints.push_back("the .ipa is build " + facts.instanceIdentifier +
                         ", the calls before were about " + about.instanceIdentifier);
  }
  if (foundation::stringAt(facts.info, "CFBundleIdentifier") != about.bundleIdentifier) {
    complaints.emplace_back("the .ipa is another app than the calls before were about");
  }
  if (!foundation::boolAt(facts.info, "QuorvantileSignedForDistribution")) {
    complaints.emplace_back("the .ipa's Info.plist is not marked for distribution");
  }
}

}  // namespace

std::optional<Address> addressOf(const ReceivedRequest& request) {
  static const std::regex kEarly(
      "/spi/v1/platforms/ios/apps/([^/]+)/releases/([^/]+)/build_server/(.+)");
  static const std::regex kUpload("/spi/v1/platforms/ios/apps/([^/]+)/distributions");
  const std::string line = request.method + " ";
  std::smatch match;
  if (std::regex_match(request.target, match, kUpload)) {
    if (request.method != "POST") return std::nullopt;
    return Address{ServiceCall::upload, match[1], ""};
  }
  if (!std::regex_match(request.target, match, kEarly)) return std::nullopt;
  const std::string wanted = line + match[3].str();
  for (const auto& [text, call] : {std::pair("GET validate_project", ServiceCall::validate),
                                   std::pair("PUT notes", ServiceCall::notes),
                                   std::pair("PUT access/enable", ServiceCall::testers)}) {
    if (wanted == text) return Address{call, match[1], match[2]};
  }
  return std::nullopt;
}

Complaints headers(const ReceivedRequest& request, ServiceCall call,
                   const StandInServiceOptions& options) {
  Complaints complaints;
  std::set<std::string> allowed = {"host",
                                   "accept",
                                   "accept-encoding",
                                   "user-agent",
                                   "x-quorvantile-api-key",
                                   "x-quorvantile-build-secret",
                                   "x-quorvantile-developer-token"};
  require(complaints, request, "User-Agent", equals("uploader/19"));
  require(complaints, request, "Accept", equals("application/json, application/x-plist"));
  require(complaints, request, "X-QUORVANTILE-DEVELOPER-TOKEN",
          equals("389eabecb56021e9d618c5d32c6afc83b458bfdd"));
  require(complaints, request, "X-QUORVANTILE-API-KEY", [&](const std::string& key) {
    return options.apiKey ? key == *options.apiKey : key.size() == 40 && isHexadecimal(key);
  });
  require(complaints, request, "X-QUORVANTILE-BUILD-SECRET", [&](const std::string& secret) {
    return options.buildSecret ? secret == *options.buildSecret : isHexadecimal(secret);
  });
  if (call == ServiceCall::validate) {
    if (!request.body().empty()) complaints.emplace_back("a GET with a body");
  } else {
    allowed.insert({"content-type", "content-length"});
    require(complaints, request, "Content-Type", equals("multipart/form-data; boundary=AaB03x"));
    require(complaints, request, "Content-Length", equals(std::to_string(request.body().size())));
  }
  requireNoOthers(complaints, request, allowed);
  return complaints;
}

Complaints smallForm(const Form& form, ServiceCall call) {
  Form rest = form;
  for (const char* const version : {"app[display_version]", "app[build_version]"}) {
    if (!rest.empty() && rest.front().name == version) rest.erase(rest.begin());
  }
  Complaints complaints;
  if (call == ServiceCall::notes) {
    const auto body = valuesOf(rest, "release_notes[body]");
    compare(complaints,
            {field("release_notes[body]", body.empty() ? "" : body[0]),
             field("release_notes[format]", "text")},
            rest);
    return complaints;
  }
  Form expected = {field("send_notifications", "false")};
  for (const char* const name : {"emails[]", "group_ids[]"}) {
    for (const auto& value : valuesOf(rest, name)) expected.push_back(field(name, value));
  }
  if (expected.size() == 1) complaints.emplace_back("nobody to enable");
  compare(complaints, expected, rest);
  return complaints;
}

Complaints upload(const Form& form, const Address& about, const IPAFacts* facts) {
  if (form.empty()) return {"an empty form"};
  Complaints complaints;
  checkSendersChoices(complaints, form);
  checkFile(complaints, form);
  if (facts) checkAgainstIPA(complaints, form, about, *facts);
  return complaints;
}

}  // namespace test::checks
