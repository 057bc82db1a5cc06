#pragma once

#include <string>
#include <string_view>

/// Base URLs of the service. The main bundle's Info.plist, then the environment, may override each.
class QVTWebAPIClientEndpoints {
 public:
  /// Key "QuorvantileAPIEndpoint".
  static std::string APIEndpoint();
  /// The code-mapping service; the same key, so that one override moves both.
  static std::string CMEndpoint();
  /// Key "GantryKitsEndpoint".
  static std::string gantryKitsEndpoint();

  /// The value under `key`, or `baseURL` where neither source has one.
  static std::string endpointForKeyBaseURL(std::string_view key, std::string_view baseURL);
};

/// Texts that name this software to the service.
class QVTNetworkConstants {
 public:
  /// "Quorvantile for Mac/VERSION" with the main bundle's short version.
  static std::string userAgentMacApp();
};
