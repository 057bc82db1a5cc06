#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Value.h"
#include "foundation/file/MappedFile.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"

namespace toolchain {

/// Something that can be signed: a bundle with an executable (app, extension, framework), or a
/// loose Mach-O file.
struct CodeBundle {
  /// As the caller named it; the prefix of every message.
  std::string name;
  /// Absolute, links resolved: the bundle's folder, or the file itself.
  std::filesystem::path path;
  /// Where Info.plist, seal and resources are: `path`, or its Contents folder. Empty for a file.
  std::filesystem::path base;
  std::filesystem::path executable;
  /// Info.plist's bytes as on disk; absent for a file.
  std::optional<foundation::Data> infoPlist;
  foundation::Dictionary info;
  /// CFBundleIdentifier; of a file the identifier of its embedded Info.plist, else its name as the
  /// platform shortens it. A bundle without CFBundleIdentifier is named like its executable.
  std::string identifier;

  /// Fails, without naming the file, when it is neither of the two: no Info.plist, no
  /// CFBundleExecutable or one with a slash or "..", executable missing.
  static Result<CodeBundle> open(const std::filesystem::path& path);
  /// The same for what was found in a bundle: `path` is absolute and leads through no link, and
  /// whoever puts one into it meanwhile makes reading and signing fail.
  static Result<CodeBundle> openInside(const std::filesystem::path& path);

  [[nodiscard]] bool isBundle() const { return !base.empty(); }
  /// base/_CodeSignature/CodeResources; empty for a file.
  [[nodiscard]] std::filesystem::path sealPath() const;
  /// The executable's path relative to `base`.
  [[nodiscard]] std::string relativeExecutable() const;
  /// True when the bundle keeps its resources in a Resources folder.
  [[nodiscard]] bool hasResourcesFolder() const;

 private:
  static Result<CodeBundle> openResolved(CodeBundle code);
};

/// "libfoo" for "/a/libfoo.dylib": no folders, no last extension unless it begins with a digit, no
/// numeric tails but the first.
std::string identifierFromFileName(const std::filesystem::path& path);

/// True for a folder with an Info.plist that names an executable which is there, or one whose name
/// leads out of the folder (so that opening it says what is wrong). A bundle of resources only is
/// none.
bool isCodeBundle(const std::filesystem::path& folder);
/// True for a regular file that is Mach-O of a kind that can be signed; a resource that only begins
/// like one is none.
bool isLooseCode(const std::filesystem::path& file);

/// True for a file that begins as Mach-O does, sound or not.
bool beginsLikeMachO(const std::filesystem::path& file);

/// Folders, asked about what lies in them.
class FolderSet {
 public:
  explicit FolderSet(const std::vector<std::filesystem::path>& folders);
  /// How many of them the path lies in; a folder does not lie in itself.
  [[nodiscard]] std::size_t countAround(const std::string& path) const;

 private:
  std::set<std::string, std::less<>> folders_;
};

/// Nested bundles with code, innermost first; reads no file but their Info.plists. Only folders
/// whose name has an extension count; folders of debug symbols (.dSYM) and links are not entered.
/// Fails when more than 16 lie in each other.
Result<std::vector<std::filesystem::path>> nestedBundles(const CodeBundle& bundle);

/// All nested code of a bundle: loose Mach-O files, then the bundles as above. Reads the start of
/// every file.
Result<std::vector<std::filesystem::path>> nestedCode(const CodeBundle& bundle);

/// The bundle's executable or file, mapped and parsed.
struct OpenedImage {
  foundation::FileDescriptor descriptor;
  foundation::MappedFile file;
  MachOFile image;
};
Result<OpenedImage> openImage(const CodeBundle& code);

/// Identifies signed code in the seal of what contains it: strongest cdhash, designated requirement
/// as text (the cdhash form when the signature has none).
struct NestedIdentity {
  std::string cdHash;
  std::string requirement;
};
Result<NestedIdentity> nestedIdentity(const std::filesystem::path& code);

}  // namespace toolchain
