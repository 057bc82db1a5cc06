#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

/// Property lists: XML, binary ("bplist00") and the old text form (NeXTSTEP braces) are read; XML
/// is written. XML: the DTD at http://www.apple.com/DTDs/PropertyList-1.0.dtd. Binary: the layout
/// in Apple's open CFBinaryPList.c. Old text form: "Old-Style ASCII Property Lists", Apple's
/// archived Property List Programming Guide.
namespace foundation::PropertyList {

/// Deepest nesting of arrays and dictionaries that any reader accepts.
inline constexpr int kMaximumDepth = 512;

/// Reads any of the three forms. Fails with the form and, where it is known, the line, and never
/// crashes, whatever the bytes: nesting deeper than `kMaximumDepth` is an error, and so is a
/// dictionary of several hundred thousand keys, or of thousands that are repeated or made to be
/// slow to search. A UTF-8 byte-order mark is skipped; text in UTF-16 is accepted in XML and in the
/// old text form.
///
/// In the old text form everything is a string, data, an array or a dictionary; a file without
/// outer braces is a dictionary.
Result<Value> parse(Bytes bytes);

/// Reads a list that other readers must not take for another one: in XML or binary form, without
/// keys that a dictionary repeats, and in XML with nothing but white space after it.
Result<Value> parseUnambiguous(Bytes bytes);

/// Reads only the XML form.
Result<Value> parseXML(Bytes bytes);

/// The dictionary in the file; none when the file cannot be read, has no bytes (though that would
/// be an empty list of the old form), is no property list or holds something else at the top.
std::optional<Dictionary> dictionaryWithContentsOfFile(const std::filesystem::path& path);

/// The value as an XML property list with the platform's header and tab indentation, every value of
/// its own type, dictionary keys in ascending byte order. Null and error values cannot be written.
Result<std::string> xml(const Value& value);

/// Writes the XML form beside the file and renames it over the file, so that no reader ever sees a
/// part of it. An existing file's permissions are kept; a new one gets 0666 less the process's
/// mask.
Result<> writeToFileAtomically(const Value& value, const std::filesystem::path& path);

}  // namespace foundation::PropertyList
