#pragma once

#include <string>
#include <vector>

#include "tests/support/IPAFacts.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/MultipartForm.h"
#include "tests/support/StandInService.h"

/// The stand-in service's checks of a request. Each returns complaints.
namespace test::checks {

/// The parts of a request's path.
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

/// Compares the fields of an upload with the uploaded file (null if it was not opened). `about` is
/// from the calls before it.
std::vector<std::string> upload(const Form& form, const Address& about, const IPAFacts* facts);

}  // namespace test::checks
