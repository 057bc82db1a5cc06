#include "inspect/EntitlementGrants.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace inspect {

using foundation::Value;

namespace {

bool covers(const std::string& pattern, const std::string& text) {
  if (!pattern.ends_with('*')) return pattern == text;
  return text.starts_with(std::string_view(pattern).substr(0, pattern.size() - 1));
}

}  // namespace

bool grants(const Value& pattern, const Value& value) {
  if (const auto* values = value.array()) {
    return std::ranges::all_of(*values, [&](const Value& one) { return grants(pattern, one); });
  }
  if (const auto* patterns = pattern.array()) {
    return std::ranges::any_of(*patterns, [&](const Value& one) { return grants(one, value); });
  }
  if (const auto* wanted = value.boolean()) {
    const auto* granted = pattern.boolean();
    return !*wanted || (granted && *granted);
  }
  const auto* text = value.string();
  if (const auto* textPattern = pattern.string(); textPattern && (text || *textPattern == "*")) {
    return !text || covers(*textPattern, *text);
  }
  return pattern == value;
}

}  // namespace inspect
