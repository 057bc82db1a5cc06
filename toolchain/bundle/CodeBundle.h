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

/// Whether a bundle keeps its resources in a Resources folder.
enum class BundleShape { flat, withResources };

/// Something that can be signed: a bundle with an executable (app, extension, framework), or a
/// loose Mach-O file.
struct CodeBundle {
  /// The path as the caller gave it, for messages.
  std::string name;
  /// The bundle's folder or the file; absolute, without symlinks.
  std::filesystem::path path;
  /// Where Info.plist, seal and resources are: `path`, or its Contents folder. Empty for a file.
  std::filesystem::path base;
  std::filesystem::path executable;
  /// Info.plist's bytes as on disk; absent for a file.
  std::optional<foundation::Data> infoPlist;
  foundation::Dictionary info;
  /// CFBundleIdentifier of Info.plist, for a file of the embedded one; otherwise
  /// `identifierFromFileName` of the executable.
  std::string identifier;

  /// A bundle's executable opens as the bundle. Fails, without naming the path, when there is no
  /// Info.plist, its CFBundleExecutable is missing or not a plain file name, or there is no
  /// executable.
  static Result<CodeBundle> open(const std::filesystem::path& path);
  /// The same for code found in a bundle: `path` is absolute and without symlinks. If it gets one
  /// meanwhile, reading and signing fail.
  static Result<CodeBundle> openInside(const std::filesystem::path& path);

  [[nodiscard]] bool isBundle() const { return !base.empty(); }
  /// base/_CodeSignature/CodeResources; empty for a file.
  [[nodiscard]] std::filesystem::path sealPath() const;
  /// The executable's path relative to `base`.
  [[nodiscard]] std::string relativeExecutable() const;
  [[nodiscard]] BundleShape shape() const;
};

/// "libfoo" for "/a/libfoo.dylib": without folders, the last extension (unless it begins with a
/// digit), and numeric tails after the first.
std::string identifierFromFileName(const std::filesystem::path& path);

/// True for a folder whose Info.plist names an existing executable, or one outside the folder (so
/// that opening it says what is wrong); false for a bundle of resources only.
bool isCodeBundle(const std::filesystem::path& folder);
/// True for a regular file that is Mach-O of a kind that can be signed; false for a resource that
/// only begins like one.
bool isLooseCode(const std::filesystem::path& file);

/// True for a file that begins as Mach-O does, well-formed or not.
bool beginsLikeMachO(const std::filesystem::path& file);

/// A set of folders, for finding out which of them contain a path.
class FolderSet {
 public:
  explicit FolderSet(const std::vector<std::filesystem::path>& folders);
  /// How many of the folders contain the path; a folder does not contain itself.
  [[nodiscard]] std::size_t countAround(const std::string& path) const;

 private:
  std::set<std::string, std::less<>> folders_;
};

/// Nested bundles with code, innermost first; reads no files but Info.plists. Only folders with an
/// extension count; debug symbols (.dSYM) and symlinks are not entered. Fails when bundles are
/// nested more than 16 deep.
Result<std::vector<std::filesystem::path>> nestedBundles(const CodeBundle& bundle);

/// All nested code of a bundle: loose Mach-O files, then the bundles as above. Reads the start of
/// every file.
Result<std::vector<std::filesystem::path>> nestedCode(const CodeBundle& bundle);

/// The executable, mapped and parsed.
struct OpenedImage {
  foundation::FileDescriptor descriptor;
  foundation::MappedFile file;
  MachOFile image;
};
Result<OpenedImage> openImage(const CodeBundle& code);

/// What identifies nested code in a seal: the strongest cdhash and the designated requirement as
/// text (that of the cdhash when the signature has none), both of the first slice.
struct NestedIdentity {
  std::string cdHash;
  std::string requirement;
};
Result<NestedIdentity> nestedIdentity(const std::filesystem::path& code);

}  // namespace toolchain
