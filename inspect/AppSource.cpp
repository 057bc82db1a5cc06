#include "inspect/AppSource.h"

#include <cerrno>
#include <optional>
#include <sstream>

#include <stdlib.h>

#include "foundation/FileManager.h"
#include "foundation/Interruption.h"
#include "foundation/Path.h"
#include "foundation/ProcessInfo.h"
#include "inspect/Arguments.h"
#include "preparation/QVTFileSystemUtils.h"
#include "preparation/QVTInfoPlist.h"
#include "xcode/QVTXcodeArchive.h"

namespace inspect {

using foundation::Result;

namespace {

std::shared_ptr<QVTCodeSignedResource> resourceOfApp(const std::string& path) {
  auto bundle = foundation::Bundle::bundleWithPath(path);
  if (!bundle) return nullptr;
  const auto info = QVTInfoPlist::initWithAppDirectory(path);
  auto resource = std::make_shared<QVTCodeSignedResource>();
  resource->setPath(path);
  resource->setBundle(std::move(bundle));
  resource->setBundleIdentifier(info->bundleIdentifier());
  resource->setDisplayVersion(info->displayVersion());
  resource->setBuildVersion(info->buildVersion());
  resource->setProvisioningProfilePath(
      foundation::appendingPathComponent(path, "embedded.mobileprovision"));
  return resource;
}

/// Makes a folder this process's temporary folder for a scope. No other thread runs meanwhile.
class TemporaryFolderChange {
 public:
  explicit TemporaryFolderChange(const std::filesystem::path& folder)
      : before_(foundation::ProcessInfo::environmentValue("TMPDIR")) {
    ::setenv("TMPDIR", folder.c_str(), 1);
  }
  ~TemporaryFolderChange() {
    if (before_) {
      ::setenv("TMPDIR", before_->c_str(), 1);
    } else {
      ::unsetenv("TMPDIR");
    }
  }
  TemporaryFolderChange(const TemporaryFolderChange&) = delete;
  TemporaryFolderChange& operator=(const TemporaryFolderChange&) = delete;

 private:
  std::optional<std::string> before_;
};

/// What `unzip` had to say, on one line.
std::string wordsOfUnzip(const foundation::Error& error) {
  const auto said = error.userInfo.find("stderr");
  const std::string* text = said == error.userInfo.end() ? nullptr : said->second.string();
  if (!text) return error.localizedDescription();
  std::istringstream stream(*text);
  std::string words = "unzip says:";
  for (std::string word; stream >> word;) words += " " + word;
  return words;
}

/// The folder of the app in an .ipa, unpacked below `folder`. Archives are inflated below this
/// process's temporary folder, so that is moved for the while.
Result<std::string> inflatedApp(const std::string& path, const PrivateFolder& folder) {
  if (QVTFileSystemUtils::pathForShellTool("unzip").value_or("").empty()) {
    return inputError("cannot read " + path + " as an .ipa: unzip is not in PATH");
  }
  const TemporaryFolderChange change(folder.path());
  std::optional<foundation::Error> error;
  const auto inflated = QVTFileSystemUtils::inflateToTemporaryPathArchive(path, &error);
  foundation::throwIfInterrupted();
  if (!inflated) {
    return inputError("cannot read " + path + " as an .ipa: " +
                      (error ? wordsOfUnzip(*error) : std::string("it cannot be inflated")));
  }
  const std::string payload = *inflated + "Payload";
  const auto names = QVTFileSystemUtils::findPathsToAppsInDirectory(payload);
  if (!names || names->empty()) {
    return inputError("cannot read " + path + " as an .ipa: no app in its Payload");
  }
  return payload + "/" + names->front();
}

}  // namespace

Result<PrivateFolder> PrivateFolder::make() {
  const auto parent = foundation::FileManager::temporaryDirectory();
  if (!parent) return parent.error();
  std::string name = *parent + "sendoff-inspect-XXXXXX";
  if (!::mkdtemp(name.data()))
    return foundation::posixError(errno, "cannot make a folder in " + *parent, *parent);
  return PrivateFolder(name);
}

PrivateFolder::~PrivateFolder() {
  if (path_.empty()) return;
  [[maybe_unused]] const auto removed = foundation::FileManager::removeItemAtPath(path_);
}

Result<AppSource> AppSource::open(const std::string& path) {
  AppSource source;
  if (!foundation::FileManager::fileExistsAtPath(path)) return inputError("nothing is at " + path);
  if (!foundation::FileManager::isDirectoryAtPath(path)) {
    auto folder = PrivateFolder::make();
    if (!folder) return folder.error();
    source.folder_.emplace(std::move(*folder));
    const auto app = inflatedApp(path, *source.folder_);
    if (!app) return app.error();
    source.resource_ = resourceOfApp(*app);
    if (!source.resource_) return inputError("cannot open " + *app + " as an app");
    return source;
  }
  if (foundation::pathExtension(path) == "xcarchive") {
    source.resource_ = QVTXcodeArchive::initWithURL(foundation::URL::fileURLWithPath(path));
    if (!source.resource_)
      return inputError("cannot read " + path +
                        " as an archive: no Info.plist, or its app is missing");
    return source;
  }
  if (!foundation::FileManager::fileExistsAtPath(
          foundation::appendingPathComponent(path, "Info.plist"))) {
    return inputError("cannot read " + path + " as an app: it has no Info.plist");
  }
  source.resource_ = resourceOfApp(path);
  if (!source.resource_) return inputError("cannot open " + path + " as an app");
  return source;
}

}  // namespace inspect
