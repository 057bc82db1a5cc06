// Resource rules: a pattern, and after the first line feed the path to search it in.
#include "toolchain/seal/private/PathPattern.h"

#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const auto end = std::min(input.find('\n'), input.size());
  const std::string_view text = input.substr(0, end);
  const std::string_view path = input.substr(end);
  const auto pattern = toolchain::PathPattern::compile(text);
  if (!pattern) return 0;
  const bool matches = pattern->matches(path);
  // The same in a group; and found wherever it begins and ends, with the anchors left out.
  const auto group = toolchain::PathPattern::compile("(" + std::string(text) + ")");
  if (group && text.find_first_of(")[\\") == text.npos)
    fuzz::require(group->matches(path) == matches);
  const std::string longer = "x" + std::string(path) + "x";
  if (matches && text.find_first_of("^$") == text.npos) fuzz::require(pattern->matches(longer));
  return 0;
}
