#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/base/URL.h"
#include "preparation/QVTCodeSignedResource.h"

/// The app inside an archive that Xcode made (a folder ending in ".xcarchive").
class QVTXcodeArchive : public QVTCodeSignedResource {
 public:
  /// Empty when there is no URL, the archive has no readable Info.plist with anything in it, or the
  /// app's folder, which that file names, is not there or not inside the archive's "Products". A
  /// `foundation::Exception` when the machine keeps the app's Info.plist from being read, as
  /// `Bundle::bundleWithPath` says.
  static std::shared_ptr<QVTXcodeArchive> initWithURL(const std::optional<foundation::URL>& url);

  /// Where Xcode keeps archives: its preference as it stands (no tilde is expanded, and the folder
  /// need not exist), else its default below the user's Library. Lets every later look-up in the
  /// process see Xcode's preferences, too.
  static std::optional<std::string> currentArchiveLocation();

 protected:
  [[nodiscard]] std::string_view className() const override { return "QVTXcodeArchive"; }

 private:
  QVTXcodeArchive() = default;
};
