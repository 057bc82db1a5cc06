#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/Hashing.h"

/// _CodeSignature/CodeResources: the list of everything in a bundle besides its executable.
namespace toolchain {

/// One rule: a POSIX extended regular expression, searched in the path relative to the bundle.
struct ResourceRule {
  std::string pattern;
  double weight = 1;
  bool omitted = false;
  bool optional = false;
  bool nested = false;
  friend bool operator==(const ResourceRule&, const ResourceRule&) = default;
};

/// Both generations of rules; `rules` leads to "files", `rules2` to "files2".
struct ResourceRules {
  std::vector<ResourceRule> rules;
  std::vector<ResourceRule> rules2;
  friend bool operator==(const ResourceRules&, const ResourceRules&) = default;
};

/// What the platform's tool writes for an iOS bundle.
ResourceRules defaultResourceRules(BundleShape shape);

/// Rules ready for use: the heaviest match wins, an omitting one on a tie.
class RuleMatcher {
 public:
  /// Fails with the pattern and the reason when one is not a regular expression (`PathPattern`),
  /// and when all of them together are too complex.
  static Result<RuleMatcher> compile(const std::vector<ResourceRule>& rules);
  RuleMatcher(RuleMatcher&&) noexcept;
  RuleMatcher& operator=(RuleMatcher&&) noexcept;
  ~RuleMatcher();
  /// The winning rule; null when none matches. Safe from one thread at a time.
  [[nodiscard]] const ResourceRule* match(const std::string& relativePath) const;

 private:
  struct Compiled;
  explicit RuleMatcher(std::unique_ptr<Compiled> compiled);
  std::unique_ptr<Compiled> compiled_;
};

/// What a seal says about one path. Exactly one of hashes, link text and nested code.
struct SealedItem {
  std::optional<foundation::SHA1Digest> sha1;
  std::optional<foundation::SHA256Digest> sha256;
  std::optional<std::string> linkTarget;
  /// Nested code: its strongest cdhash (20 bytes) and its designated requirement's text.
  std::optional<std::string> cdHash;
  std::string requirement;
  bool optional = false;
  friend bool operator==(const SealedItem&, const SealedItem&) = default;
};

/// By relative path in ascending byte order.
using SealedItems = std::map<std::string, SealedItem, std::less<>>;

struct ResourceSeal {
  /// SHA-1 only, regular files only.
  SealedItems files;
  SealedItems files2;
  ResourceRules rules;
  /// Those of the files that begin as Mach-O does; empty in a seal that was read.
  std::vector<std::string> machOFiles;
};

/// The property list as the platform's tool lays it out. Fails for a path or link with characters
/// that XML cannot hold.
Result<std::string> text(const ResourceSeal& seal);
/// Accepts every seal of the platform's tool, also one without the second generation.
Result<ResourceSeal> parseResourceSeal(Bytes file);
/// A rules dictionary as a property list value, and back.
foundation::Value value(const std::vector<ResourceRule>& rules);
Result<std::vector<ResourceRule>> parseResourceRules(const foundation::Value& value);

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
