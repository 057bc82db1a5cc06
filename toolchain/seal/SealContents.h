#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/signature/Hashing.h"

namespace toolchain {

struct SealOptions {
  ResourceRules rules;
  /// Whether items of `files2` carry SHA-1 beside SHA-256.
  bool sha1InFiles2 = false;
  /// Absolute paths to pass over, besides what is always passed over.
  std::function<bool(const std::string&)> ignore;
};

/// What a seal of a bundle covers, found by one walk through its folders.
class SealContents {
 public:
  static Result<SealContents> collect(const CodeBundle& bundle, const SealOptions& options);
  SealContents(SealContents&&) noexcept;
  ~SealContents();

  /// Absolute paths of the regular files, in ascending byte order of what follows the bundle's
  /// path.
  [[nodiscard]] std::vector<std::string> files() const;
  /// The same for loose code that the seal will name by its hash; it must be signed by then.
  [[nodiscard]] std::vector<std::string> codeByHash() const;
  /// The seal of their content as it is now.
  Result<ResourceSeal> seal(FileHasher& hasher) const;

 private:
  class Collector;
  explicit SealContents(std::unique_ptr<Collector> collector);
  std::unique_ptr<Collector> collector_;
};

/// The seal of what is in the bundle now; the verifier compares it with the one it found. Always
/// passed over: the folder _CodeSignature, the main executable, and unless they are Mach-O the
/// files in the folder _MASReceipt and a file CodeResources at the top. Fails for entries that are
/// neither file, folder nor link ("unsupported resource found"), for a .DS_Store that is a link,
/// for nested code without a signature, and for what cannot be read.
Result<ResourceSeal> makeResourceSeal(const CodeBundle& bundle, const SealOptions& options,
                                      FileHasher& hasher);

}  // namespace toolchain
