#pragma once

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

/// JSON (RFC 8259) as the platform's decoder reads it.
namespace foundation::JSON {

/// Deepest nesting that the reader accepts.
inline constexpr int kMaximumDepth = 512;

/// Decodes UTF-8, UTF-16 or UTF-32 text (with or without a byte-order mark) whose top level is an
/// array or an object. Anything else fails with a position. Of a repeated key the last value wins.
Result<Value> decode(Bytes bytes);

/// Compact (`indent` < 0) or indented JSON text. Dates become ISO 8601 in UTC, data lower-case hex;
/// text that is not UTF-8 gets U+FFFD in place of its ill-formed parts. Control characters are
/// escaped, those above U+007E too.
std::string encode(const Value& value, int indent = -1);

}  // namespace foundation::JSON
