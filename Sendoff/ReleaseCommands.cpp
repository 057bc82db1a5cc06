#include "Sendoff/ReleaseCommands.h"

#include <functional>
#include <optional>

#include "QVTWebClient/QVTWebClient.h"
#include "QVTWebClient/QVTWebRequest.h"
#include "QVTWebClient/QVTWebResponse.h"
#include "Sendoff/AppFacts.h"
#include "Sendoff/QVTAppInfo.h"
#include "Sendoff/ServiceMessage.h"
#include "console/QVTCLUtilLog.h"
#include "foundation/app/Bundle.h"
#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/net/Proxy.h"
#include "foundation/process/SystemLog.h"

namespace {

/// Identifies this tool to the service; the same in every copy.
constexpr const char* kDeveloperToken = "389eabecb56021e9d618c5d32c6afc83b458bfdd";

/// The path of a build-server call for this build of the app.
std::string releasePathOf(const QVTAppInfo& appInfo, std::string_view command) {
  return foundation::format("/spi/v1/platforms/ios/apps/%@/releases/%@/build_server/%@",
                            pathComponent(bundleIdentifierOf(appInfo)),
                            pathComponent(instanceIdentifierOf(appInfo)), command);
}

/// Whether the service accepted the request (status 200 or 202), after `report` was called.
bool send(const QVTAppInfo& appInfo, const std::shared_ptr<QVTWebRequest>& request,
          const std::function<void(const QVTWebResponse& response, bool accepted)>& report) {
  const auto client = QVTWebClient::initWithURL(foundation::URL::withString(appInfo.apiEndpoint()));
  bool accepted = false;
  client->syncStartRequestCompletion(request, [&](const std::shared_ptr<QVTWebResponse>& response) {
    accepted = response->statusCode() == 200 || response->statusCode() == 202;
    if (!accepted) logFailedRequest(*response, appInfo);
    report(*response, accepted);
  });
  return accepted;
}

constexpr std::string_view kService = "The service";

std::string senderOf(const QVTWebResponse& response) {
  const auto& url = response.requestURL();
  const auto proxy = url ? foundation::proxyPlaceFor(*url) : std::nullopt;
  return response.statusCode() == 407 && proxy ? "The proxy " + *proxy : std::string(kService);
}

}  // namespace

std::shared_ptr<QVTWebRequest> setupRequest(const std::string& method, const std::string& path,
                                            const QVTAppInfo& appInfo) {
  auto request = QVTWebRequest::requestWithMethodPath(method, path);
  const auto* const toolVersion =
      foundation::Bundle::mainBundle().objectForInfoDictionaryKey("CFBundleVersion");
  request->addValueForHTTPHeaderField(foundation::format("uploader/%@", toolVersion), "User-Agent");
  request->addValueForHTTPHeaderField(appInfo.buildSecret(), "X-QUORVANTILE-BUILD-SECRET");
  request->addValueForHTTPHeaderField(appInfo.apiKey(), "X-QUORVANTILE-API-KEY");
  request->addValueForHTTPHeaderField(kDeveloperToken, "X-QUORVANTILE-DEVELOPER-TOKEN");
  if (method != "GET") {
    request->addValueForFormField(infoTextOf(appInfo, "CFBundleShortVersionString"),
                                  "app[display_version]");
    request->addValueForFormField(infoTextOf(appInfo, "CFBundleVersion"), "app[build_version]");
  }
  return request;
}

void logErrorResponse(std::string_view context, const QVTWebResponse& response) {
  const auto body = QVTWebClient::decodeJSON(response.responseData());
  const foundation::Value* const error = body ? body->find("error") : nullptr;
  const foundation::Value* const message = error ? error->find("message") : nullptr;
  if (message) {
    QVTCLUtilLog("%@: %@", context,
                 foundation::escapingControlCharacters(foundation::format("%@", message)));
  } else {
    QVTCLUtilLog("%@. Response code: %ld", context, response.statusCode());
  }
}

void logFailedRequest(const QVTWebResponse& response, const QVTAppInfo& appInfo) {
  if (const auto& error = response.error()) {
    foundation::systemLog(error->domain == QVTWebClientErrorDomain
                              ? "The request was not sent: %@"
                              : "No response from the service: %@",
                          error->localizedDescription());
    return;
  }
  const std::string message = serviceMessage(response, {appInfo.apiKey(), appInfo.buildSecret()});
  const std::string sender = senderOf(response);
  if (message.empty() && sender == kService) return;
  foundation::systemLog("%@ answered %lu%@", sender, response.statusCode(),
                        message.empty() ? message : ": " + message);
}

bool releaseValidation(const QVTAppInfo& appInfo) {
  const auto request = setupRequest("GET", releasePathOf(appInfo, "validate_project"), appInfo);
  return send(appInfo, request, [](const QVTWebResponse& response, bool accepted) {
    if (accepted) return;
    QVTCLUtilLog("Unable to find application in Quorvantile. Response code: %lu",
                 response.statusCode());
  });
}

bool addReleaseNotes(const QVTAppInfo& appInfo, const std::string& notes) {
  const auto request = setupRequest("PUT", releasePathOf(appInfo, "notes"), appInfo);
  request->addValueForFormField(notes, "release_notes[body]");
  request->addValueForFormField("text", "release_notes[format]");
  return send(appInfo, request, [](const QVTWebResponse& response, bool accepted) {
    if (!accepted) return logErrorResponse("Unable to add release notes", response);
    QVTCLUtilLog("Added Release Notes Successfully %lu", response.statusCode());
  });
}

bool addTesters(const QVTAppInfo& appInfo, const std::vector<std::string>& emails,
                const std::vector<std::string>& groupAliases) {
  if (emails.empty() && groupAliases.empty()) return true;
  const auto request = setupRequest("PUT", releasePathOf(appInfo, "access/enable"), appInfo);
  request->addValueForFormField("false", "send_notifications");
  for (const std::string& email : emails) request->addValueForFormField(email, "emails[]");
  for (const std::string& alias : groupAliases) request->addValueForFormField(alias, "group_ids[]");
  return send(appInfo, request, [](const QVTWebResponse& response, bool accepted) {
    if (!accepted) return logErrorResponse("Unable to add testers", response);
    QVTCLUtilLog("Added Testers/Groups Successfully %lu", response.statusCode());
  });
}
