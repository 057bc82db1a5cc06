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

  /// Where it lies until it takes its target's place.
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// Bytes that are never written are zero. Safe beside calls for other offsets. Pieces that lie in
  /// `source` are copied by the system, without a detour through this process.
  Result<> write(std::uint64_t offset, const Pieces& content,
                 const MappedSource& source = {}) const;
  /// Waits until what was written so far is on its medium.
  Result<> flush() const;

 private:
  std::filesystem::path target_;
  std::filesystem::path path_;
  foundation::FileDescriptor file_;
};

/// Files that are replaced together. Each new file is written in full beside its target, with the
/// target's mode, owner and attributes, before any of them takes its target's place. Unless
/// `finish` is called, everything is put back as it was when the object goes. Paths are absolute
/// and lead through no link; a folder that has become one meanwhile is an error.
class Replacement {
 public:
  Replacement() = default;
  Replacement(const Replacement&) = delete;
  ~Replacement();

  /// Makes an empty new file of this size for `target`, which need not exist (its folder is made
  /// then), with the attributes of `model`: of the target itself when that is left out. Fails with
  /// the path and the system's text.
  Result<NewFile> prepare(const std::filesystem::path& target, std::uint64_t size,
                          const std::filesystem::path& model = {});
  /// The same with its content.
  Result<NewFile> prepare(const std::filesystem::path& target, const Pieces& content,
                          const std::filesystem::path& model = {});
  /// Puts what was prepared for these targets into place, in the given order.
  Result<> commit(const std::vector<std::filesystem::path>& targets);
  /// Takes a file, or a folder with all that is in it, away.
  Result<> remove(const std::filesystem::path& target);
  /// Keeps what was committed.
  void finish();

  /// True for the files of this object that lie beside targets; they are no part of any bundle.
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
  void discard(const std::filesystem::path& own);

  std::vector<Prepared> prepared_;
  std::vector<Step> done_;
  std::vector<std::filesystem::path> madeFolders_;
  std::set<std::string, std::less<>> own_;
};

}  // namespace toolchain
