#pragma once

#include "foundation/base/Value.h"

namespace inspect {

/// True when a profile's `pattern` allows an app's `value`: an equal value, a string that matches a
/// trailing "*", an array whose elements are each allowed by one of the pattern's, or false.
bool grants(const foundation::Value& pattern, const foundation::Value& value);

}  // namespace inspect
