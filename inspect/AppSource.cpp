#include "inspect/AppSource.h"

#include <cerrno>
#include <optional>
#include <sstream>

#include <stdlib.h>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/Interruption.h"
#include "inspect/Arguments.h"
#include "inspect/Report.h"
#include "package/AppPackage.h"
#include "preparation/Inflation.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/QVTIPA.h"
#include "xcode/QVTXcodeArchive.h"

namespace inspect {

using foundation::Result;

namespace {

/// The error text of `unzip` on one line.
std::string unzipMessage(const foundation::Error& error) {
  const auto text = foundation::stringAt(error.userInfo, "stderr");
  if (!text) return error.localizedDescription();
  std::istringstream stream(*text);
  std::string words = "unzip says:";
  for (std::string word; stream >> word;) words += " " + word;
  return words;
}

/// Unpacks the .ipa below `folder`.
Result<std::shared_ptr<QVTCodeSignedResource>> openIPA(const std::string& path,
                                                       const std::string& folder) {
  const std::string problem = "cannot read " + path + " as an .ipa: ";
  if (QVTFileSystemUtils::pathForShellTool("unzip").value_or("").empty()) {
    return inputError(problem + "unzip is not in PATH");
  }
  const auto inflation = inflateArchive(path, {.parent = folder + "/"});
  foundation::throwIfInterrupted();
  if (!inflation) return inputError(problem + unzipMessage(inflation.error()));
  const auto ipa = QVTIPA::withInflation(*inflation);
  if (!ipa) return inputError(problem + ipa.error().localizedDescription());
  if (!(*ipa)->bundle()) return inputError("cannot open " + (*ipa)->path().value() + " as an app");
  return std::shared_ptr<QVTCodeSignedResource>(*ipa);
}

}  // namespace

void AppSource::FolderRemover::operator()(const std::string* path) const {
  static_cast<void>(foundation::FileManager::removeItemAtPath(*path));
  delete path;
}

Result<> AppSource::makeFolder() {
  const auto parent = foundation::FileManager::temporaryDirectory();
  if (!parent) return parent.error();
  std::string name = *parent + "sendoff-inspect-XXXXXX";
  if (!::mkdtemp(name.data()))
    return foundation::posixError(errno, "cannot make a folder in " + *parent, *parent);
  folder_.reset(new std::string(name));
  return {};
}

Result<AppSource> AppSource::open(const std::string& path) {
  AppSource source;
  if (!foundation::FileManager::fileExistsAtPath(path)) return inputError("nothing is at " + path);
  if (!foundation::FileManager::isDirectoryAtPath(path)) {
    auto ipa = source.makeFolder().andThen([&] { return openIPA(path, *source.folder_); });
    if (!ipa) return std::move(ipa.error());
    source.resource_ = *std::move(ipa);
    return source;
  }
  if (foundation::pathExtension(path) == "xcarchive") {
    source.resource_ = QVTXcodeArchive::initWithURL(foundation::URL::fileURLWithPath(path));
    if (!source.resource_)
      return inputError("cannot read " + path +
                        " as an archive: no Info.plist, or its app is missing");
    return source;
  }
  if (!foundation::FileManager::fileExistsAtPath(package::AppPackage(path).infoPlistPath())) {
    return inputError("cannot read " + path + " as an app: it has no Info.plist");
  }
  source.resource_ = std::make_shared<QVTCodeSignedResource>();
  source.resource_->readApp(path);
  if (!source.resource_->bundle()) return inputError("cannot open " + path + " as an app");
  return source;
}

foundation::Dictionary describeIdentity(const QVTCodeSignedResource& resource) {
  const auto stated = [&info = resource.bundle()->infoDictionary()](std::string_view key) {
    return orNull(foundation::stringAt(info, key));
  };
  const auto& profile = resource.provisioningProfilePath();
  const bool hasProfile = profile && foundation::FileManager::fileExistsAtPath(*profile);
  return {
      {"path", orNull(resource.path())},
      {"bundleIdentifier", stated("CFBundleIdentifier")},
      {"displayVersion", stated("CFBundleShortVersionString")},
      {"buildVersion", stated("CFBundleVersion")},
      {"creationDate", orNull(resource.creationDate())},
      {"provisioningProfilePath", hasProfile ? foundation::Value(*profile) : foundation::Value()}};
}

}  // namespace inspect
