#pragma once

#include <string_view>

namespace foundation {

/// Where an assertion stands, as it is to be printed. An empty member is left out; line 0 too.
struct AssertionSite {
  std::string_view function;
  std::string_view source;
  int line = 0;
};

/// Only the line, for a caller that ends in another way.
void reportFailedAssertion(std::string_view expression, const AssertionSite& site);

/// Stops the process for a programming fault, in release builds too: one line on standard error,
/// "Assertion failed: (EXPRESSION), function FUNCTION, file SOURCE, line N.", then abort().
[[noreturn]] void assertionFailed(std::string_view expression, const AssertionSite& site);

inline void assertThat(bool holds, std::string_view expression, const AssertionSite& site) {
  if (!holds) assertionFailed(expression, site);
}

}  // namespace foundation
