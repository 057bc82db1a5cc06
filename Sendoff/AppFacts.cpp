#include "Sendoff/AppFacts.h"

#include "Sendoff/QVTAppInfo.h"
#include "foundation/app/Bundle.h"
#include "foundation/base/URL.h"
#include "macho/QVTMachOBinary.h"
#include "preparation/QVTCodeSignedResource.h"

std::optional<std::string> bundleIdentifierOf(const QVTAppInfo& appInfo) {
  if (const auto& resource = appInfo.codeSignedResource()) return resource->bundleIdentifier();
  return std::nullopt;
}

std::optional<std::string> instanceIdentifierOf(const QVTAppInfo& appInfo) {
  if (const auto& binary = appInfo.binary()) return binary->instanceIdentifier();
  return std::nullopt;
}

std::optional<std::string> pathComponent(const std::optional<std::string>& text) {
  return text ? std::optional(foundation::percentEscapedPathComponent(*text)) : std::nullopt;
}

const foundation::Value* infoValueOf(const QVTAppInfo& appInfo, std::string_view key) {
  const auto& resource = appInfo.codeSignedResource();
  return resource && resource->bundle() ? resource->bundle()->objectForInfoDictionaryKey(key)
                                        : nullptr;
}

std::optional<std::string> infoTextOf(const QVTAppInfo& appInfo, std::string_view key) {
  const foundation::Value* const value = infoValueOf(appInfo, key);
  return value && value->string() ? std::optional(*value->string()) : std::nullopt;
}
