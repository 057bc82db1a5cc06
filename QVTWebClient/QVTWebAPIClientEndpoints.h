#pragma once

#include <string>
#include <string_view>

/// Base URLs of the service. The main bundle's Info.plist or else the environment overrides each.
class QVTWebAPIClientEndpoints {
 public:
  /// Key "QuorvantileAPIEndpoint".
  static std::string APIEndpoint();
  /// The code-mapping service; the same key, so one override moves both.
  static std::string CMEndpoint();
  /// Key "GantryKitsEndpoint".
  static std::string gantryKitsEndpoint();

  /// `baseURL` unless overridden under `key`.
  static std::string endpointForKeyBaseURL(std::string_view key, std::string_view baseURL);
};

/// How this software identifies itself to the service.
class QVTNetworkConstants {
 public:
  /// "Quorvantile for Mac/VERSION" with the main bundle's short version.
  static std::string userAgentMacApp();
};
