#pragma once

#include "foundation/base/Value.h"

namespace inspect {

/// True when a profile that grants `pattern` lets an app have `value`: the same value, a text that
/// a trailing "*" covers, a list of which every element is covered by one of the pattern's, a
/// boolean that asks for no more.
bool grants(const foundation::Value& pattern, const foundation::Value& value);

}  // namespace inspect
