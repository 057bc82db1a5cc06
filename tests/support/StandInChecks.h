#pragma once

#include <string>
#include <vector>

#include "tests/support/IPAFacts.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/MultipartForm.h"
#include "tests/support/StandInService.h"

/// What the stand-in service holds against a request. Each function returns its complaints.
namespace test::checks {

/// Where a request's path says that it belongs.
struct Address {
  ServiceCall call = ServiceCall::validate;
  std::string bundleIdentifier;
  /// Empty for an upload, whose path has none.
  std::string instanceIdentifier;
};
std::optional<Address> addressOf(const ReceivedRequest& request);

std::vector<std::string> headers(const ReceivedRequest& request, ServiceCall call,
                                 const StandInServiceOptions& options);

/// The fields of a notes or testers call.
std::vector<std::string> smallForm(const Form& form, ServiceCall call);

/// The fields of an upload, against what the uploaded file itself says (null: it was not opened).
/// `about` is what the calls before it were about.
std::vector<std::string> upload(const Form& form, const Address& about, const IPAFacts* facts);

}  // namespace test::checks
