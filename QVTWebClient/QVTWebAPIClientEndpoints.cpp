#include "QVTWebClient/QVTWebAPIClientEndpoints.h"

#include "QVTWebClient/ServiceHosts.h"
#include "foundation/app/Bundle.h"
#include "foundation/base/Format.h"
#include "foundation/process/ProcessInfo.h"

namespace {

constexpr std::string_view kAPIEndpointKey = "QuorvantileAPIEndpoint";
constexpr std::string_view kGantryKitsEndpointKey = "GantryKitsEndpoint";

}  // namespace

std::string QVTWebAPIClientEndpoints::APIEndpoint() {
  return endpointForKeyBaseURL(kAPIEndpointKey, kQVTAPIBaseURL);
}

std::string QVTWebAPIClientEndpoints::CMEndpoint() {
  return endpointForKeyBaseURL(kAPIEndpointKey, kQVTCodeMappingBaseURL);
}

std::string QVTWebAPIClientEndpoints::gantryKitsEndpoint() {
  return endpointForKeyBaseURL(kGantryKitsEndpointKey, kQVTKitsBaseURL);
}

std::string QVTWebAPIClientEndpoints::endpointForKeyBaseURL(std::string_view key,
                                                            std::string_view baseURL) {
  const auto* value = foundation::Bundle::mainBundle().objectForInfoDictionaryKey(key);
  if (value) return foundation::format("%@", value);
  if (auto text = foundation::ProcessInfo::environmentValue(std::string(key))) return *text;
  return std::string(baseURL);
}

std::string QVTNetworkConstants::userAgentMacApp() {
  return foundation::format(
      "Quorvantile for Mac/%@",
      foundation::Bundle::mainBundle().objectForInfoDictionaryKey("CFBundleShortVersionString"));
}
