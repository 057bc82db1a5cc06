// Resource rules: a pattern, and after the first line feed the path to search it in.
#include "toolchain/seal/private/PathPattern.h"

#include "fuzz/FuzzTarget.h"

void fuzz::readInput(foundation::Bytes input) {
  const std::string_view all = foundation::textOf(input);
  const auto end = std::min(all.find('\n'), all.size());
  const std::string_view text = all.substr(0, end);
  const std::string_view path = all.substr(end);
  const auto pattern = toolchain::PathPattern::compile(text);
  if (!pattern) return;
  const bool matches = pattern->matches(path);
  // The same in a group; and found wherever it begins and ends, with the anchors left out.
  const auto group = toolchain::PathPattern::compile("(" + std::string(text) + ")");
  if (group && text.find_first_of(")[\\") == text.npos)
    fuzz::require(group->matches(path) == matches);
  const std::string longer = "x" + std::string(path) + "x";
  if (matches && text.find_first_of("^$") == text.npos) fuzz::require(pattern->matches(longer));
}
