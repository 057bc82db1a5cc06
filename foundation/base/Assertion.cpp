#include "foundation/base/Assertion.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace foundation {

void reportFailedAssertion(std::string_view expression, const AssertionSite& site) {
  std::string line = "Assertion failed: (" + std::string(expression) + ")";
  if (!site.function.empty()) line += ", function " + std::string(site.function);
  if (!site.source.empty()) line += ", file " + std::string(site.source);
  if (site.line != 0) line += ", line " + std::to_string(site.line);
  line += ".\n";
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
}

void assertionFailed(std::string_view expression, const AssertionSite& site) {
  reportFailedAssertion(expression, site);
  std::abort();
}

}  // namespace foundation
