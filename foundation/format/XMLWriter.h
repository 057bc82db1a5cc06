#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

namespace foundation::PropertyList {

/// Writes an XML property list piece by piece, with the platform's header and tab indentation, for
/// lists too long to be held as values first.
class XMLWriter {
 public:
  XMLWriter();

  /// Values of a dictionary each follow their key. Entries stay in the order given.
  void beginDictionary();
  void endDictionary();
  void key(std::string_view text);
  /// Every value keeps its type, but for UIDs, which become {"CF$UID": number}.
  void value(const Value& value);

  /// Whether a string or key can be written: UTF-8 without characters that XML cannot hold, such as
  /// U+0001 and U+FFFF.
  static bool canWrite(std::string_view text);

  /// The text; nothing may be written after that. Fails if anything had no written form: null and
  /// error values, text that is not UTF-8 or has characters that XML cannot hold, years beyond
  /// 9999, nesting deeper than `kMaximumDepth`.
  Result<std::string> finish();

 private:
  void begin(std::string_view name);
  void end(std::string_view name);
  void line(std::string_view text);
  void element(std::string_view name, std::string_view content);
  void text(std::string_view name, std::string_view content);
  void special(std::string_view content);
  void date(Date date);
  void data(Bytes bytes);
  void array(const Array& values);
  void dictionary(const Dictionary& entries);
  void fail(std::string complaint);

  std::string out_;
  std::size_t level_ = 0;
  /// The first thing that had no written form.
  std::optional<std::string> complaint_;
};

}  // namespace foundation::PropertyList
