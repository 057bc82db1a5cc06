// _CodeSignature/CodeResources: both lists, and the rules, which are asked about a few paths.
#include "fuzz/FuzzTarget.h"
#include "toolchain/seal/ResourceSeal.h"

namespace {

void useRules(const std::vector<toolchain::ResourceRule>& rules) {
  const auto matcher = toolchain::RuleMatcher::compile(rules);
  if (!matcher) return;
  fuzz::ignore(
      matcher->match("en.lproj/Localizable.strings"),
      matcher->match("Frameworks/A.framework/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"));
}

}  // namespace

void fuzz::readInput(foundation::Bytes input) {
  const auto seal = toolchain::parseResourceSeal(input);
  if (!seal) return;
  useRules(seal->rules.rules);
  useRules(seal->rules.rules2);
  const auto written = toolchain::text(*seal);
  if (written) fuzz::require(toolchain::parseResourceSeal(foundation::bytesOf(*written)).ok());
}
