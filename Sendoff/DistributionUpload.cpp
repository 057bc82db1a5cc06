#include "Sendoff/DistributionUpload.h"

#include <chrono>
#include <vector>

#include "QVTWebClient/QVTWebClient.h"
#include "QVTWebClient/QVTWebRequest.h"
#include "QVTWebClient/QVTWebResponse.h"
#include "Sendoff/AppFacts.h"
#include "Sendoff/QVTAppInfo.h"
#include "Sendoff/ReleaseCommands.h"
#include "console/QVTCLUtilLog.h"
#include "foundation/base/Format.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/SystemLog.h"
#include "macho/QVTMachOBinary.h"
#include "signing/QVTProvisioningProfile.h"

namespace {

const char* nameOf(bool flag) { return flag ? "true" : "false"; }

std::string deviceFamilyName(const foundation::Value& family) {
  if (family == 1) return "iPhone";
  return family == 2 ? "iPad" : "unknown";
}

std::string secondsSince1970() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return foundation::format("%lu", std::chrono::floor<std::chrono::seconds>(now).count());
}

/// The lower-case "a" in the key is deliberate: no other spelling is read.
bool isNewsstandApp(const QVTAppInfo& appInfo) {
  const foundation::Value* const value = infoValueOf(appInfo, "UINewsstandapp");
  return value && value->boolValue().value_or(false);
}

void addDevices(QVTWebRequest& request, const QVTProvisioningProfile* profile) {
  if (!profile) return;
  for (const std::string& device : profile->provisionedDevices()) {
    request.addValueForFormField(device, "distribution[devices][][udid]");
  }
}

void addPlatformAttributes(QVTWebRequest& request, const QVTAppInfo& appInfo) {
  const QVTProvisioningProfile* const profile = appInfo.provisioningProfile().get();
  request.addValueForFormField(nameOf(profile && profile->provisionsAllDevices()),
                               "distribution[platform_attributes][enterprise]");
  request.addValueForFormField(deviceFamilyNames(infoValueOf(appInfo, "UIDeviceFamily")),
                               "distribution[platform_attributes][devices]");
  request.addValueForFormField(infoTextOf(appInfo, "MinimumOSVersion"),
                               "distribution[platform_attributes][min_os]");
  request.addValueForFormField(nameOf(isNewsstandApp(appInfo)),
                               "distribution[platform_attributes][newsstand]");
}

void addSlices(QVTWebRequest& request, const QVTMachOBinary* binary) {
  std::vector<std::string> architectures;
  if (binary) {
    binary->enumerateUUIDs([&](const auto& uuid, const auto& architecture) {
      request.addValueForFormField(architecture, "app[slices][][arch]");
      request.addValueForFormField(uuid, "app[slices][][uuid]");
      architectures.push_back(architecture);
    });
  }
  request.addValueForFormField(foundation::joined(architectures, ","),
                               "distribution[platform_attributes][architectures]");
}

std::shared_ptr<QVTWebRequest> uploadRequest(const QVTAppInfo& appInfo, const foundation::Data& ipa,
                                             bool notifications) {
  const std::string path = foundation::format("/spi/v1/platforms/ios/apps/%@/distributions",
                                              pathComponent(bundleIdentifierOf(appInfo)));
  auto request = setupRequest("POST", path, appInfo);
  addDevices(*request, appInfo.provisioningProfile().get());
  request->addValueForFormField(secondsSince1970(), "distribution[built_at]");
  request->addValueForFormField("ios_app", "app[type]");
  addPlatformAttributes(*request, appInfo);
  addSlices(*request, appInfo.binary().get());
  request->addValueForFormField(instanceIdentifierOf(appInfo), "app[instance_identifier]");
  // Unlike the other calls, this one takes "suppress" and not "false".
  request->addValueForFormField(notifications ? "true" : "suppress", "send_notifications");
  request->addDataMIMETypeFileNameForFormField(
      ipa, "application/zip", foundation::lastPathComponent(*appInfo.releasePath()),
      "distribution[file]");
  return request;
}

}  // namespace

std::string deviceFamilyNames(const foundation::Value* families) {
  std::vector<std::string> names;
  if (families && families->array()) {
    for (const foundation::Value& family : *families->array()) {
      names.push_back(deviceFamilyName(family));
    }
  }
  return foundation::joined(names, ",");
}

bool uploadRelease(const QVTAppInfo& appInfo, bool notifications) {
  const auto& path = appInfo.releasePath();
  const auto ipa = path ? foundation::FileManager::contentsOfFile(*path) : foundation::Data();
  if (!path || !ipa) {
    if (!ipa) foundation::systemLog("%@", ipa.error().localizedDescription());
    QVTCLUtilLog("Unable to load IPA at %@", foundation::escapingControlCharacters(path));
    return false;
  }
  const auto client =
      QVTWebClient::initWithURL(foundation::URL::withString(appInfo.uploadEndpoint()));
  const auto request = uploadRequest(appInfo, *ipa, notifications);
  debugLog("Submitting IPA at %@", foundation::escapingControlCharacters(path));

  bool uploaded = false;
  client->syncStartRequestCompletion(request, [&](const std::shared_ptr<QVTWebResponse>& response) {
    uploaded = response->statusCode() == 202;
    if (!uploaded) {
      logFailedRequest(*response, appInfo);
      return logErrorResponse("Unable to submit build", *response);
    }
    QVTCLUtilLog("Uploaded Successfully %lu", response->statusCode());
  });
  return uploaded;
}
