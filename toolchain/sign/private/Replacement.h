#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "foundation/base/Handle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/Hashing.h"

namespace toolchain {

/// An open file and all of its bytes, mapped.
struct MappedSource {
  int file = -1;
  Bytes bytes;
};

/// A file that is being written beside the one it will replace.
class NewFile {
 public:
  NewFile(std::filesystem::path target, std::filesystem::path path, foundation::FileDescriptor file)
      : target_(std::move(target)), path_(std::move(path)), file_(std::move(file)) {}

  /// Its path until it replaces its target.
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// Writes the parts and waits until they are on disk; bytes never written are zero. The kernel
  /// copies pieces that lie in `source` from file to file.
  Result<> write(const std::vector<FilePart>& parts, const MappedSource& source = {}) const;

 private:
  Result<> write(std::uint64_t offset, Bytes bytes, const MappedSource& source) const;

  std::filesystem::path target_;
  std::filesystem::path path_;
  foundation::FileDescriptor file_;
};

/// Files that are replaced together. Each new file is written in full beside its target, with the
/// target's mode, owner and attributes, before any target is replaced. Without `finish`, the
/// destructor restores everything. Paths are absolute and contain no symlinks; a folder that has
/// become one meanwhile is an error.
class Replacement {
 public:
  Replacement() = default;
  Replacement(const Replacement&) = delete;
  ~Replacement();

  /// Makes an empty new file of this size for `target`, with the attributes of `model`, by default
  /// the target's own. Neither the target nor its folder need exist. Fails with the path and the
  /// system's text.
  Result<NewFile> prepare(const std::filesystem::path& target, std::uint64_t size,
                          const std::filesystem::path& model = {});
  /// The same with its content.
  Result<NewFile> prepare(const std::filesystem::path& target, const Pieces& content,
                          const std::filesystem::path& model = {});
  /// Replaces these targets by what was prepared for them, in this order.
  Result<> commit(const std::vector<std::filesystem::path>& targets);
  /// Removes a file, or a folder with its contents.
  Result<> remove(const std::filesystem::path& target);
  /// Keeps what was committed.
  void finish();

  /// True for the temporary files of this object beside its targets; they belong to no bundle.
  [[nodiscard]] bool owns(const std::string& path) const { return own_.contains(path); }

 private:
  struct Step {
    std::filesystem::path target;
    /// The old file; empty when there was none.
    std::filesystem::path backup;
  };
  struct Prepared {
    std::filesystem::path target;
    std::filesystem::path temporary;
  };

  Result<> makeFolder(const std::filesystem::path& folder);
  Result<std::filesystem::path> keepOld(const std::filesystem::path& target);
  std::filesystem::path besides(const std::filesystem::path& target);

  std::vector<Prepared> prepared_;
  std::vector<Step> done_;
  std::vector<std::filesystem::path> madeFolders_;
  std::set<std::string, std::less<>> own_;
};

}  // namespace toolchain
