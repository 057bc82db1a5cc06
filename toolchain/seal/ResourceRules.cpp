#include <algorithm>

#include "toolchain/common/Messages.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/seal/private/PathPattern.h"

namespace toolchain {

namespace {

constexpr double kOptionalWeight = 1000;
constexpr std::size_t kMostRules = 1000;
/// Of all rules together: what they cost to compile, and for each byte of a path at most.
constexpr std::size_t kMostStatesOfAllRules = 16384;
constexpr std::size_t kMostStepsPerByte = 2048;

using Rules = std::vector<ResourceRule>;

ResourceRule optionalRule(std::string pattern) {
  return {.pattern = std::move(pattern), .weight = kOptionalWeight, .optional = true};
}

ResourceRule omittingRule(std::string pattern, double weight) {
  return {.pattern = std::move(pattern), .weight = weight, .omitted = true};
}

ResourceRule weighted(std::string pattern, double weight) {
  return {.pattern = std::move(pattern), .weight = weight};
}

ResourceRule nestedRule(std::string pattern) {
  return {.pattern = std::move(pattern), .weight = 10, .nested = true};
}

Rules localizationRules(const std::string& prefix) {
  return {optionalRule("^" + prefix + ".*\\.lproj/"),
          omittingRule("^" + prefix + ".*\\.lproj/locversion.plist$", 1100),
          weighted("^" + prefix + "Base\\.lproj/", 1010)};
}

void add(Rules& rules, Rules more) { rules.insert(rules.end(), more.begin(), more.end()); }

constexpr char kCodeFolders[] =
    "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
    "Library/(Automator|Spotlight|LoginItems))/";

Rules firstGeneration(BundleShape shape) {
  const bool isFlat = shape == BundleShape::flat;
  Rules rules = {weighted(isFlat ? "^.*" : "^Resources/", 1), weighted("^version.plist$", 1)};
  add(rules, localizationRules(isFlat ? "" : "Resources/"));
  return rules;
}

Rules secondGeneration(BundleShape shape) {
  const bool isFlat = shape == BundleShape::flat;
  Rules rules = {weighted(".*\\.dSYM($|/)", 11),
                 omittingRule("^(.*/)?\\.DS_Store$", 2000),
                 weighted("^.*", 1),
                 omittingRule("^Info\\.plist$", 20),
                 omittingRule("^PkgInfo$", 20),
                 weighted("^embedded\\.provisionprofile$", 20),
                 weighted("^version\\.plist$", 20)};
  add(rules, localizationRules(isFlat ? "" : "Resources/"));
  if (!isFlat) {
    add(rules, {nestedRule("^[^/]+$"), nestedRule(kCodeFolders), weighted("^Resources/", 20)});
  }
  return rules;
}

/// One rule with its ready-made test.
struct CompiledRule {
  ResourceRule rule;
  PathPattern pattern;
};

}  // namespace

ResourceRules defaultResourceRules(BundleShape shape) {
  ResourceRules result{firstGeneration(shape), secondGeneration(shape)};
  const auto byPattern = [](const ResourceRule& a, const ResourceRule& b) {
    return a.pattern < b.pattern;
  };
  std::sort(result.rules.begin(), result.rules.end(), byPattern);
  std::sort(result.rules2.begin(), result.rules2.end(), byPattern);
  return result;
}

struct RuleMatcher::Compiled {
  /// Heaviest first, an omitting one before others of its weight: the first match wins.
  std::vector<CompiledRule> rules;
};

RuleMatcher::RuleMatcher(std::unique_ptr<Compiled> compiled) : compiled_(std::move(compiled)) {}
RuleMatcher::RuleMatcher(RuleMatcher&&) noexcept = default;
RuleMatcher& RuleMatcher::operator=(RuleMatcher&&) noexcept = default;
RuleMatcher::~RuleMatcher() = default;

Result<RuleMatcher> RuleMatcher::compile(const std::vector<ResourceRule>& rules) {
  if (rules.size() > kMostRules) {
    return failure(std::to_string(rules.size()) + " resource rules are too many");
  }
  auto compiled = std::make_unique<Compiled>();
  std::size_t states = 0;
  std::size_t steps = 0;
  for (const ResourceRule& rule : rules) {
    auto pattern = PathPattern::compile(rule.pattern);
    if (!pattern) {
      return failure("resource rule \"" + rule.pattern.substr(0, 80) +
                     "\": " + pattern.error().localizedDescription());
    }
    states += pattern->stateCount();
    steps += pattern->stepsPerByte();
    if (states > kMostStatesOfAllRules || steps > kMostStepsPerByte) {
      return failure("the resource rules are too complex");
    }
    compiled->rules.push_back({rule, std::move(*pattern)});
  }
  std::stable_sort(compiled->rules.begin(), compiled->rules.end(),
                   [](const CompiledRule& a, const CompiledRule& b) {
                     if (a.rule.weight != b.rule.weight) return a.rule.weight > b.rule.weight;
                     return a.rule.omitted && !b.rule.omitted;
                   });
  return RuleMatcher(std::move(compiled));
}

const ResourceRule* RuleMatcher::match(const std::string& relativePath) const {
  for (const CompiledRule& rule : compiled_->rules) {
    if (rule.pattern.matches(relativePath)) return &rule.rule;
  }
  return nullptr;
}

}  // namespace toolchain
