#include "toolchain/bundle/CodeBundle.h"

#include <algorithm>
#include <system_error>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/DirectoryWalk.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/PropertyList.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/signature/EmbeddedSignature.h"

namespace toolchain {

namespace fs = std::filesystem;
using foundation::DirectoryEntry;
using foundation::Links;
using foundation::FileManager::isRealDirectory;

namespace {

bool isRegularFile(const fs::path& path) {
  std::error_code failed;
  return fs::is_regular_file(fs::symlink_status(path, failed));
}

foundation::Error unsuitable(const std::string& why) {
  return faultError(Fault::bundleFormat, why);
}

/// The target of a link is not the bundle's, neither to read nor to sign.
bool isRegularFileInFolder(const fs::path& path) {
  return isRealDirectory(path.parent_path()) && isRegularFile(path);
}

/// The folder in which the bundle keeps its Info.plist; empty without one.
fs::path baseOf(const fs::path& bundle) {
  for (const fs::path& base : {bundle, bundle / "Contents"}) {
    if (isRegularFileInFolder(base / "Info.plist")) return base;
  }
  return {};
}

/// Where the executable of this name belongs.
fs::path executablePath(const CodeBundle& code, const std::string& name) {
  return (code.base == code.path ? code.base : code.base / "MacOS") / name;
}

Result<fs::path> executableOf(const CodeBundle& code) {
  const auto name = foundation::stringAt(code.info, "CFBundleExecutable");
  if (!name) return unsuitable("Info.plist has no CFBundleExecutable");
  if (!foundation::isPlainName(*name)) {
    return unsuitable("CFBundleExecutable \"" + *name + "\" is not the name of a file");
  }
  const fs::path executable = executablePath(code, *name);
  if (!isRegularFileInFolder(executable)) {
    return unsuitable("the executable " + executable.string() +
                      " is missing or not a regular file");
  }
  return executable;
}

/// Finds and reads the bundle's Info.plist.
Result<> readInfo(CodeBundle& code) {
  code.base = baseOf(code.path);
  if (code.base.empty()) return unsuitable("no Info.plist in " + code.path.string());
  const fs::path path = code.base / "Info.plist";
  auto file = foundation::FileManager::contentsOfFile(path, Links::refused);
  if (!file) return file.error();
  auto value = foundation::PropertyList::parse(file->bytes());
  if (!value) return unsuitable(path.string() + ": " + value.error().localizedDescription());
  if (!value->dictionary()) return unsuitable(path.string() + " is not a dictionary");
  code.info = std::move(*value->dictionary());
  code.infoPlist = std::move(*file);
  return {};
}

Result<CodeBundle> openBundle(CodeBundle code) {
  return readInfo(code).andThen([&] { return executableOf(code); }).map([&](fs::path executable) {
    code.executable = std::move(executable);
    code.identifier = foundation::stringAt(code.info, "CFBundleIdentifier").value_or("");
    if (code.identifier.empty()) code.identifier = identifierFromFileName(code.executable);
    return std::move(code);
  });
}

/// CFBundleIdentifier of the property list inside the file; empty without one.
std::string embeddedIdentifier(const fs::path& file) {
  const auto mapped = foundation::MappedFile::open(file, Links::refused);
  if (!mapped) return {};
  const auto image = MachOFile::parse(mapped->bytes());
  if (!image) return {};
  const auto embedded = image->embeddedInfoPlist(chosenSlice(*image, SlicePolicy::first));
  if (!embedded) return {};
  const auto value = foundation::PropertyList::parse(*embedded);
  if (!value || !value->dictionary()) return {};
  return foundation::stringAt(*value->dictionary(), "CFBundleIdentifier").value_or("");
}

/// A bundle's executable opens as the bundle.
Result<CodeBundle> openFile(CodeBundle code) {
  const fs::path folder = code.path.parent_path();
  if (!baseOf(folder).empty()) {
    CodeBundle around = code;
    around.path = folder;
    auto bundle = openBundle(std::move(around));
    if (bundle && bundle->executable == code.path) return bundle;
  }
  code.executable = code.path;
  code.identifier = embeddedIdentifier(code.path);
  if (code.identifier.empty()) code.identifier = identifierFromFileName(code.path);
  return code;
}

bool isDigits(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, foundation::isDigit);
}

Result<CodeBundle> openResolved(const std::string& name, const fs::path& path) {
  CodeBundle code;
  code.name = name;
  code.path = path;
  if (isRealDirectory(code.path)) return openBundle(std::move(code));
  if (isRegularFile(code.path)) return openFile(std::move(code));
  return failure("neither a folder nor a regular file");
}

/// Each bundle is sealed again in every bundle around it, so the cost of signing grows with depth.
constexpr int kDeepestNesting = 16;

std::ptrdiff_t depthOf(const fs::path& path) { return std::ranges::count(path.native(), '/'); }

}  // namespace

Result<CodeBundle> CodeBundle::open(const fs::path& path) {
  std::error_code failed;
  const fs::path resolved = fs::canonical(path, failed);
  if (failed) return failure(failed.message());
  return openResolved(path.string(), resolved);
}

Result<CodeBundle> CodeBundle::openInside(const fs::path& path) {
  return openResolved(path.string(), path);
}

fs::path CodeBundle::sealPath() const {
  return isBundle() ? base / "_CodeSignature" / "CodeResources" : fs::path();
}

std::string CodeBundle::relativeExecutable() const {
  return isBundle() ? executable.native().substr(base.native().size() + 1) : std::string();
}

BundleShape CodeBundle::shape() const {
  return isBundle() && isRealDirectory(base / "Resources") ? BundleShape::withResources
                                                           : BundleShape::flat;
}

std::string identifierFromFileName(const fs::path& path) {
  std::string name = foundation::lastPathComponent(path.native());
  const std::string extension = foundation::pathExtension(name);
  const bool isVersion = !extension.empty() && foundation::isDigit(extension[0]);
  if (!extension.empty() && !isVersion) name.resize(name.size() - extension.size() - 1);
  // Of a numeric tail like .2.3.4 only the first number is kept.
  auto dot = name.rfind('.');
  while (dot != std::string::npos && dot > 0 && isDigits(std::string_view(name).substr(dot + 1))) {
    const auto before = name.rfind('.', dot - 1);
    if (before == std::string::npos ||
        !isDigits(std::string_view(name).substr(before + 1, dot - before - 1))) {
      break;
    }
    name.resize(dot);
    dot = before;
  }
  return name;
}

bool isCodeBundle(const fs::path& folder) {
  CodeBundle code;
  code.path = folder;
  if (!readInfo(code)) return false;
  const auto name = foundation::stringAt(code.info, "CFBundleExecutable");
  if (!name) return false;
  // Opening the bundle says what is wrong with a name that leads out of it.
  return !foundation::isPlainName(*name) || isRegularFileInFolder(executablePath(code, *name));
}

bool beginsLikeMachO(const fs::path& file) {
  const auto mapped = foundation::MappedFile::open(file, Links::refused);
  return mapped && looksLikeMachO(mapped->bytes());
}

bool isLooseCode(const fs::path& file) {
  if (!isRegularFile(file)) return false;
  const auto mapped = foundation::MappedFile::open(file, Links::refused);
  return mapped && looksLikeMachO(mapped->bytes()) && MachOFile::parse(mapped->bytes()).ok();
}

FolderSet::FolderSet(const std::vector<fs::path>& folders) {
  for (const fs::path& folder : folders) folders_.insert(folder.native());
}

std::size_t FolderSet::countAround(const std::string& path) const {
  std::size_t count = 0;
  for (auto slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
    if (folders_.contains(std::string_view(path).substr(0, slash))) ++count;
  }
  return count;
}

Result<std::vector<fs::path>> nestedBundles(const CodeBundle& bundle) {
  std::vector<fs::path> found;
  const auto walked =
      foundation::walkDirectory(bundle.base, Links::refused, [&](const DirectoryEntry& entry, int) {
        if (entry.kind != DirectoryEntry::Kind::folder) return false;
        const std::string extension = foundation::pathExtension(entry.path);
        if (extension == "dSYM") return false;
        if (!extension.empty() && isCodeBundle(bundle.base / entry.path)) {
          found.push_back(bundle.base / entry.path);
        }
        return true;
      });
  if (!walked) return walked.error();
  const FolderSet bundles(found);
  for (const fs::path& path : found) {
    if (bundles.countAround(path) < kDeepestNesting) continue;
    return unsuitable(path.string() + " is nested more than " + std::to_string(kDeepestNesting) +
                      " bundles deep");
  }
  std::ranges::sort(found, {},
                    [](const fs::path& path) { return std::pair(-depthOf(path), path.native()); });
  return found;
}

Result<std::vector<fs::path>> nestedCode(const CodeBundle& bundle) {
  auto found = nestedBundles(bundle);
  if (!found) return found;
  std::vector<fs::path> executables = {bundle.executable};
  for (const fs::path& path : *found) {
    const auto code = CodeBundle::openInside(path);
    if (code) executables.push_back(code->executable);
  }
  std::ranges::sort(executables);
  std::vector<fs::path> loose;
  const auto walked =
      foundation::walkDirectory(bundle.base, Links::refused, [&](const DirectoryEntry& entry, int) {
        if (entry.kind == DirectoryEntry::Kind::folder) {
          return foundation::pathExtension(entry.path) != "dSYM";
        }
        const fs::path path = bundle.base / entry.path;
        if (entry.kind == DirectoryEntry::Kind::file && isLooseCode(path) &&
            !std::binary_search(executables.begin(), executables.end(), path)) {
          loose.push_back(path);
        }
        return false;
      });
  if (!walked) return walked.error();
  std::ranges::sort(loose);
  loose.insert(loose.end(), found->begin(), found->end());
  return loose;
}

Result<OpenedImage> openImage(const CodeBundle& code) {
  foundation::FileDescriptor descriptor;
  auto file = foundation::MappedFile::open(code.executable, descriptor, Links::refused);
  if (!file) return file.error();
  return MachOFile::parse(file->bytes())
      .mapError(within(code.executable.string()))
      .map([&](MachOFile image) {
        return OpenedImage{std::move(descriptor), *std::move(file), std::move(image)};
      });
}

Result<NestedIdentity> nestedIdentity(const fs::path& path) {
  const auto inPath = within(path.string());
  const auto opened = CodeBundle::openInside(path).mapError(inPath).andThen(openImage);
  if (!opened) return opened.error();
  // The seal has room for one hash only; the first slice's stands for all.
  const Slice& slice = chosenSlice(opened->image, SlicePolicy::first);
  if (!slice.signature) return inPath(faultError(Fault::unsignedCode));
  return EmbeddedSignature::parse(opened->image.signatureArea(slice))
      .andThen([](const EmbeddedSignature& signature) {
        return signature.designatedRequirement().map([&](const auto& designated) {
          const auto hash = signature.strongest().cdHash();
          return NestedIdentity{
              std::string(foundation::textOf(hash)),
              designated ? text(*designated) : "cdhash H\"" + foundation::lowercaseHex(hash) + '"'};
        });
      })
      .mapError(inPath);
}

}  // namespace toolchain
