// Readers of all other files, messages and settings.
#include <algorithm>
#include <climits>

#include "QVTIDEFoundation/QVTIDEProject.h"
#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"
#include "foundation/base/Format.h"
#include "foundation/crypto/private/KeyDerivationBudget.h"
#include "foundation/crypto/private/KeychainFiles.h"
#include "foundation/format/JSON.h"
#include "foundation/format/PropertyList.h"
#include "fuzz/Reader.h"
#include "preparation/UnzipPaths.h"
#include "preparation/ZipDirectory.h"
#include "signing/QVTProvisioningProfile.h"
#include "xcode/QVTEnvironment.h"

namespace fuzz {
namespace {

using namespace foundation;

void readCertificate(const Certificate& certificate) {
  ignore(certificate.subject(), certificate.subjectSummary(), certificate.commonName(),
         certificate.issuerText(), certificate.notBefore(), certificate.notAfter(),
         certificate.isIssuedBy(certificate),
         certificate.extensionValue("1.2.840.113635.100.6.1.4"), certificate.sha1());
}

/// Property lists in their three forms, told apart by content; what can be read can be written.
const Registration kPropertyList("PropertyList", [](Bytes input) {
  const auto value = PropertyList::parse(input);
  const auto strict = PropertyList::parseUnambiguous(input);
  if (strict) require(value.ok());
  if (!value) return;
  ignore(format("%@", *value));
  // Characters that XML cannot hold have no written form.
  const auto written = PropertyList::xml(*value);
  if (written) require(PropertyList::parse(bytesOf(*written)).ok());
});

/// Responses of the service.
const Registration kJSON("JSON", [](Bytes input) {
  const auto value = JSON::decode(input);
  if (!value) return;
  ignore(format("%@", *value));
  const std::string written = JSON::encode(*value);
  require(JSON::decode(bytesOf(written)).ok());
});

/// Central directories of zip archives, and where the entries would be unpacked.
const Registration kZipDirectory("ZipDirectory", [](Bytes input) {
  const auto directory = archive::ZipDirectory::read(input);
  if (!directory) return;
  for (const auto& entry : directory->entries()) {
    require(!entry.name.empty() && entry.name.find('\0') == entry.name.npos);
    require(entry.headerOffset < input.size() &&
            entry.compressedSize < input.size() - entry.headerOffset);
    require(directory->uncompressedSize() >= entry.uncompressedSize);
  }
  const UnzipPaths paths(*directory);
  for (const auto& app : paths.apps()) {
    require(app.ends_with(".app") && app.find('/') == app.npos);
    require(paths.reach("Payload/" + app));
  }
});

/// Certificates and key files: DER, PEM and PKCS #12.
const Registration kKeychain("Keychain", [](Bytes input) {
  const MemoryFile file(input);
  std::uint64_t iterations = KeyDerivationBudget::kMaximum;
  const auto contents = readKeychainFile(file.path(), iterations);
  if (!contents) return;
  for (const auto& certificate : contents->certificates) {
    readCertificate(certificate);
    for (const auto& key : contents->keys) ignore(key.belongsTo(certificate));
  }
});

/// Provisioning profiles: the property list cut out of a signed message, and its certificates.
const Registration kProfile("Profile", [](Bytes input) {
  const MemoryFile file(input);
  // A folder without keys.
  const auto profile =
      QVTProvisioningProfile::initWithPathKeychainPath(file.path(), "/proc/self/fdinfo");
  if (!profile) return;
  ignore(profile->description(), profile->certWithPrivateKeyAvailable(),
         profile->matchesBundleIdentifier("com.example.app"),
         profile->file().entitlementsFor("com.example.app"));
});

/// Xcode project files, parsed and walked.
const Registration kProject("Project", [](Bytes input) {
  const MemoryFile file(input);
  const auto project = QVTIDEProject::initWithProjectPath(file.path());
  if (!project) return;
  ignore(project->description());
  if (project->mainGroup()) {
    project->mainGroup()->enumerateTree(
        [](const QVTIDESourceTreeObject&, int depth) { require(depth <= 512); });
  }
  const Dictionary environment{{"SOURCE_ROOT", "/src"}};
  for (const auto& [id, object] : project->filesDictionary()) {
    ignore(object->absolutePathWithBuildEnvironmentForProject(&environment, *project));
  }
  for (const auto& target : project->targets()) ignore(target->description());
});

/// Argument strings, and option values among the arguments.
const Registration kArguments("Arguments", [](Bytes input) {
  const auto parts = QVTTask::parsedArgumentsFromString(textOf(input));
  if (!parts) return;
  std::size_t length = 0;
  for (const std::string& part : *parts) length += part.size();
  require(length <= input.size());
  const Array provided(parts->begin(), parts->end());
  for (const bool allowsTrailing : {false, true}) {
    try {
      QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
          provided, {"-F", "-I", "--sign"}, allowsTrailing);
    } catch (const Exception&) {
      // An empty element after an option.
    }
  }
});

/// Values of the framework-search-paths setting, in a made-up file system.
const Registration kSearchPaths("SearchPaths", [](Bytes input) {
  const std::string_view value = textOf(input);
  // Every path of even length exists, so that any mixture occurs.
  const QVTDirectoryQuestion isDirectory = [](const std::string& path) {
    require(path.size() < PATH_MAX);
    return path.size() % 2 == 0;
  };
  const auto paths = QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectoryFileManager(
      value, "/project", isDirectory);
  std::size_t length = 0;
  for (const std::string& path : paths) length += path.size();
  require(length <= input.size());
});

}  // namespace
}  // namespace fuzz
