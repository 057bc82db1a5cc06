#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/base/Bytes.h"
#include "foundation/base/Result.h"

/// What is checked of foreign bytes before libplist sees them: it recurses as deep as they nest,
/// and copies a shared object at each place that refers to it.
namespace foundation {

struct CheckedXML {
  /// The part up to the end of the outermost element, or the same list in the caller's storage with
  /// escaped characters as literal text, over which libplist would take quadratic time.
  std::string_view text;
  /// Where that element ends in what was given.
  std::size_t end = 0;
  /// Keys of all dictionaries together, repeated ones included.
  std::uint64_t keys = 0;
};

/// Fails with the line when elements nest too deep, do not pair up, or are cut off, when an "&"
/// begins no character, and when libplist would take far more than linear time over the keys of a
/// dictionary.
Result<CheckedXML> checkedXMLPropertyList(std::string_view text, std::string& storage);

/// Walks everything that can be reached from the top object. Fails with the object's number when
/// one lies outside, contains itself, is of no known type, or when objects nest too deep or would
/// take far more room than the file once each has a place of its own.
Result<> checkBinaryPropertyList(Bytes bytes);

}  // namespace foundation
