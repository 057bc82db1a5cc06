#pragma once

#include <memory>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"

/// The rules of a resource seal: which files it covers, and how.
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

/// A rules dictionary as a property list value, and back.
foundation::Value value(const std::vector<ResourceRule>& rules);
Result<std::vector<ResourceRule>> parseResourceRules(const foundation::Value& value);

}  // namespace toolchain
