#pragma once

#include <string>
#include <string_view>

#include "foundation/Bytes.h"
#include "foundation/Result.h"

/// What is checked of foreign bytes before libplist sees them: it recurses as deep as they nest,
/// and copies a shared object at each place that refers to it.
namespace foundation {

/// The part of `text` up to the end of its outermost element, or the same list in `storage` with
/// escaped characters as literal text, over which libplist would take quadratic time. Fails with
/// the line when elements nest too deep, do not pair up, or are cut off, when an "&" begins no
/// character, and when libplist would take far more than linear time over the keys of a dictionary.
Result<std::string_view> checkedXMLPropertyList(std::string_view text, std::string& storage);

/// Walks everything that can be reached from the top object. Fails with the object's number when
/// one lies outside, contains itself, is of no known type, or when objects nest too deep or would
/// take far more room than the file once each has a place of its own.
Result<> checkBinaryPropertyList(Bytes bytes);

}  // namespace foundation
