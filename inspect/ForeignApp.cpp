#include "inspect/ForeignApp.h"

#include <algorithm>
#include <array>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/FileManager.h"
#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/image/MachOFile.h"

namespace inspect {

using foundation::appendingPathComponent;
namespace FileManager = foundation::FileManager;

namespace {

constexpr const char* kBuildForDevices = "archive it for iOS devices (generic/platform=iOS)";

Finding isInstead(const std::string& what, const std::string& advice) {
  return {Finding::Severity::failure, "this is " + what, advice};
}

bool exists(const std::string& folder, const char* item) {
  return FileManager::fileExistsAtPath(appendingPathComponent(folder, item));
}

bool isMacLayout(const std::string& app) {
  return exists(app, "Contents/Info.plist") && !exists(app, "Info.plist");
}

bool isFrameworkArchive(const std::string& archive) {
  return exists(archive, "Products/Library/Frameworks") &&
         !exists(archive, "Products/Applications");
}

/// Every platform named in the Info dictionary, in lower case ("iphonesimulator").
std::vector<std::string> namedPlatforms(const foundation::Bundle& bundle) {
  const auto& info = bundle.infoDictionary();
  std::vector<std::string> names;
  if (const auto name = foundation::stringAt(info, "DTPlatformName")) names.push_back(*name);
  if (const auto* list = foundation::arrayAt(info, "CFBundleSupportedPlatforms")) {
    for (const auto& one : *list) names.push_back(one.string() ? *one.string() : "");
  }
  std::ranges::transform(names, names.begin(), foundation::lowercased);
  return names;
}

/// Of the executable; empty if it cannot be read.
std::vector<toolchain::Slice> slicesOf(const foundation::Bundle& bundle) {
  const auto code = toolchain::CodeBundle::open(bundle.bundlePath());
  if (!code) return {};
  const auto opened = toolchain::openImage(*code);
  return opened ? opened->image.slices() : std::vector<toolchain::Slice>();
}

/// Before simulators had their own platforms, only the processor distinguished them from devices.
bool isForSimulator(const toolchain::Slice& slice) {
  using enum toolchain::Platform;
  constexpr std::array kSimulators{iOSSimulator, tvOSSimulator, watchOSSimulator,
                                   visionOSSimulator};
  return std::ranges::find(kSimulators, slice.platform) != kSimulators.end() ||
         slice.architecture == "x86_64" || slice.architecture == "i386";
}

bool isForMac(const toolchain::Slice& slice) {
  using enum toolchain::Platform;
  return slice.platform == macOS || slice.platform == macCatalyst;
}

}  // namespace

std::optional<Finding> foreignInput(const std::string& path) {
  const std::string extension = foundation::lowercased(foundation::pathExtension(path));
  if (extension == "apk" || extension == "aab") {
    return isInstead("an Android app (." + extension + ")", "hand off the .ipa of the iOS app");
  }
  if (!FileManager::isDirectoryAtPath(path)) return std::nullopt;
  if (extension == "xcframework" || extension == "framework") {
    return isInstead("a library (." + extension + "), not an app",
                     "hand off the app that is built with it");
  }
  if (extension == "xcarchive" && isFrameworkArchive(path)) {
    return isInstead("the archive of a library, not of an app",
                     "hand off the app that is built with it");
  }
  if (isMacLayout(path)) return isInstead("a macOS app", kBuildForDevices);
  return std::nullopt;
}

std::optional<Finding> foreignApp(const foundation::Bundle& bundle) {
  const auto names = namedPlatforms(bundle);
  const auto slices = slicesOf(bundle);
  const auto isNamed = [&](std::string_view platform) {
    return std::ranges::any_of(names, [&](const auto& name) { return name.ends_with(platform); });
  };
  const bool isNamedForMac = isNamed("macosx") && !isNamed("iphoneos");
  if (isMacLayout(bundle.bundlePath()) || isNamedForMac || std::ranges::any_of(slices, isForMac)) {
    return isInstead("a macOS app", kBuildForDevices);
  }
  const bool isBuiltForSimulator = !slices.empty() && std::ranges::all_of(slices, isForSimulator);
  if (isNamed("simulator") || isBuiltForSimulator) {
    return isInstead("a build for the simulator", kBuildForDevices);
  }
  return std::nullopt;
}

}  // namespace inspect
