#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "toolchain/Hashing.h"

namespace toolchain {

/// Files that are replaced together. Each new file is written in full beside its target, with the
/// target's mode, owner and attributes, before any of them takes its target's place. Unless
/// `finish` is called, everything is put back as it was when the object goes.
class Replacement {
 public:
  Replacement() = default;
  Replacement(const Replacement&) = delete;
  ~Replacement();

  /// Writes the new content of `target`, which need not exist (its folder is made then), with the
  /// attributes of `model`: of the target itself when that is left out. Fails with
  /// the path and the system's text. The answer is where the new content lies until `commit`.
  Result<std::filesystem::path> prepare(const std::filesystem::path& target, const Pieces& content,
                                        const std::filesystem::path& model = {});
  /// Puts what was prepared since the last time into place, in that order.
  Result<> commit();
  /// Takes a file away.
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

  Result<std::filesystem::path> keepOld(const std::filesystem::path& target);
  std::filesystem::path besides(const std::filesystem::path& target);
  void discard(const std::filesystem::path& own);

  std::vector<Prepared> prepared_;
  std::vector<Step> done_;
  std::vector<std::filesystem::path> madeFolders_;
  std::set<std::string, std::less<>> own_;
};

}  // namespace toolchain
