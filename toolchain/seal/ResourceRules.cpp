#include "toolchain/seal/ResourceRules.h"

#include <algorithm>
#include <cmath>

#include "toolchain/common/Messages.h"
#include "toolchain/seal/private/PathPattern.h"

namespace toolchain {

using foundation::Dictionary;
using foundation::Value;

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

Result<double> weightOf(const Value& value) {
  if (const double* real = value.real(); real && std::isfinite(*real)) return *real;
  if (const auto* integer = value.integer()) return static_cast<double>(*integer);
  return failure("weight is not a number");
}

Result<ResourceRule> parseRule(const std::string& pattern, const Value& value) {
  ResourceRule rule{.pattern = pattern};
  if (const bool* included = value.boolean()) {
    rule.omitted = !*included;
    return rule;
  }
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary)
    return failure("resource rule \"" + pattern + "\" is neither a boolean nor a dictionary");
  rule.omitted = foundation::boolAt(*dictionary, "omit");
  rule.optional = foundation::boolAt(*dictionary, "optional");
  rule.nested = foundation::boolAt(*dictionary, "nested");
  if (const Value* weight = foundation::find(*dictionary, "weight")) {
    const auto number = weightOf(*weight);
    if (!number) return within("resource rule \"" + pattern + "\"", number.error());
    rule.weight = *number;
  }
  return rule;
}

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

Value value(const std::vector<ResourceRule>& rules) {
  Dictionary result;
  for (const ResourceRule& rule : rules) {
    if (rule.weight == 1 && !rule.optional && !rule.nested) {
      result.emplace(rule.pattern, !rule.omitted);
      continue;
    }
    Dictionary details;
    if (rule.nested) details.emplace("nested", true);
    if (rule.omitted) details.emplace("omit", true);
    if (rule.optional) details.emplace("optional", true);
    if (rule.weight != 1) details.emplace("weight", rule.weight);
    result.emplace(rule.pattern, std::move(details));
  }
  return result;
}

Result<std::vector<ResourceRule>> parseResourceRules(const Value& value) {
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary) return failure("resource rules are not a dictionary");
  std::vector<ResourceRule> rules;
  for (const auto& [pattern, entry] : *dictionary) {
    auto rule = parseRule(pattern, entry);
    if (!rule) return rule.error();
    rules.push_back(std::move(*rule));
  }
  return rules;
}

}  // namespace toolchain
