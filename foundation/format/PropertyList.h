#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

/// Property lists: XML, binary ("bplist00") and the old text form (NeXTSTEP braces) are read; XML
/// is written. XML: the DTD at http://www.apple.com/DTDs/PropertyList-1.0.dtd. Binary: the layout
/// in Apple's open CFBinaryPList.c. Old text form: "Old-Style ASCII Property Lists", Apple's
/// archived Property List Programming Guide.
///
/// Reading is safe and takes linear time, whatever the bytes. Errors give the form and, where it is
/// known, the line.
namespace foundation::PropertyList {

/// Deepest nesting of arrays and dictionaries that is read or written.
inline constexpr int kMaximumDepth = 512;

/// Reads any of the three forms. A UTF-8 byte-order mark is skipped; text in UTF-16 is accepted in
/// XML and in the old text form. XML must be well-formed, save that comments may hold any bytes;
/// XML that declares entities or default attributes is refused, and nothing outside the bytes is
/// ever read. Of a repeated key the last value wins.
///
/// In the old text form everything is a string, data, an array or a dictionary; a file without
/// outer braces is a dictionary.
Result<Value> parse(Bytes bytes);

/// Takes one entry of a dictionary; false if it already has one of this key.
using EntryTaker = std::function<bool(std::string key, Value value)>;
using EntryTakers = std::map<std::string_view, EntryTaker>;

/// Reads a list that other readers must not take for another one: in XML or binary form, without
/// keys that a dictionary repeats, and in XML with nothing but white space after it.
///
/// Where the top dictionary has a dictionary under a key of `takers`, that taker gets its entries
/// one by one, and it is empty in the result. Long lists thus need not be held as values; what the
/// takers got is of no use when the result is an error.
Result<Value> parseUnambiguous(Bytes bytes, const EntryTakers& takers = {});

/// The dictionary in the file; none when the file cannot be read, has no bytes (though that would
/// be an empty list of the old form), is not a property list or holds something else at the top.
std::optional<Dictionary> dictionaryWithContentsOfFile(const std::filesystem::path& path);

/// The value as an XML property list, keys in ascending byte order. Fails as
/// `XMLWriter::finish` does.
Result<std::string> xml(const Value& value);

/// Writes the XML form beside the file and renames it over the file, so that no reader ever sees a
/// part of it. An existing file's permissions are kept; a new one gets 0666 less the process's
/// mask.
Result<> writeToFileAtomically(const Value& value, const std::filesystem::path& path);

}  // namespace foundation::PropertyList
