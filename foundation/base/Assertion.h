#pragma once

#include <string_view>

namespace foundation {

/// The source location to print. Empty members and line 0 are left out.
struct AssertionSite {
  std::string_view function;
  std::string_view source;
  int line = 0;
};

/// Prints the line below, for callers that then throw.
void reportFailedAssertion(std::string_view expression, const AssertionSite& site);

/// Stops the process for a programming fault, in release builds too: one line on standard error,
/// "Assertion failed: (EXPRESSION), function FUNCTION, file SOURCE, line N.", then abort().
[[noreturn]] void assertionFailed(std::string_view expression, const AssertionSite& site);

inline void assertThat(bool holds, std::string_view expression, const AssertionSite& site) {
  if (!holds) assertionFailed(expression, site);
}

}  // namespace foundation
