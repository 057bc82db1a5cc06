#pragma once

#include "foundation/format/PropertyList.h"

/// One reader for each form of property list, and what they share. Each takes time linear in its
/// input and fails with `readError`.
namespace foundation::PropertyList {

/// What is to become of lists that another reader might take for different ones.
enum class Ambiguity { accepted, refused };

/// UTF-8 text, which may begin with white space and go on after its outermost element; where
/// ambiguity is refused, `takers` as in `parseUnambiguous`.
Result<Value> parseXML(std::string_view text, Ambiguity ambiguity, const EntryTakers& takers = {});

/// The layout in CFBinaryPList.c of Apple's open CF sources:
/// https://github.com/apple-oss-distributions/CF/blob/main/CFBinaryPList.c
Result<Value> parseBinary(Bytes bytes, Ambiguity ambiguity);

/// UTF-8 text.
Result<Value> parseOldStyle(std::string_view text);

/// "XML property list: ..."
Error readError(std::string_view form, std::string_view complaint);

/// The same with the line of the byte at `place`.
Error readErrorAt(std::string_view form, std::string_view text, std::size_t place,
                  std::string_view complaint);

/// Absent outside the years 1 to 9999, which have no written form, and for what is not a number.
std::optional<Date> dateAt(double secondsSince1970);

/// Adds an entry, replacing one of the same key; false if there was one. Fast for ascending keys.
bool set(Dictionary& dictionary, std::string key, Value value);

}  // namespace foundation::PropertyList
