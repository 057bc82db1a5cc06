#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/base/URL.h"
#include "preparation/QVTCodeSignedResource.h"

/// The app inside an Xcode archive (a folder that ends in ".xcarchive").
class QVTXcodeArchive : public QVTCodeSignedResource {
 public:
  /// Empty when there is no URL, the archive's Info.plist is empty or unreadable, or the app folder
  /// that it names is missing or outside "Products". Throws `foundation::Exception` where
  /// `Bundle::bundleWithPath` does.
  static std::shared_ptr<QVTXcodeArchive> initWithURL(const std::optional<foundation::URL>& url);

  /// Where Xcode keeps archives: its preference as is (no tilde is expanded, and the folder need
  /// not exist), else its default below the user's Library; absent without a home directory. From
  /// then on, lookups in the standard user defaults see Xcode's preferences, too.
  static std::optional<std::string> currentArchiveLocation();

 protected:
  [[nodiscard]] std::string_view className() const override { return "QVTXcodeArchive"; }

 private:
  QVTXcodeArchive() = default;
};
