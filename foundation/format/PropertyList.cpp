#include "foundation/format/PropertyList.h"

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <plist/plist.h>

#include "foundation/base/Format.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/base/UnicodeText.h"
#include "foundation/file/FileManager.h"
#include "foundation/format/private/DictionaryFilling.h"
#include "foundation/format/private/OldStylePropertyList.h"
#include "foundation/format/private/PropertyListGuard.h"

namespace foundation::PropertyList {

namespace {

using NativeHandle = Handle<void, plist_free>;
using AllocatedText = Handle<char, std::free>;

Error listError(std::string_view form, std::string_view complaint) {
  return makeError(kCocoaErrorDomain, 3840, format("%@ property list: %@", form, complaint));
}

/// Seconds between 1970 and 2001, from which property lists count.
constexpr double kReferenceDate = 978307200;

/// libplist hands out dates cut to 32 bits; its own binary form of one has the whole number, behind
/// an eight-byte header and a marker.
std::optional<Date> dateOf(plist_t node) {
  char* binary = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &binary, &length);
  const Handle<char, plist_to_bin_free> owner(binary);
  const Bytes bytes(reinterpret_cast<const std::byte*>(binary), length);
  const auto window = slice(bytes, 9, 8);
  if (!window) return std::nullopt;
  std::uint64_t bits = 0;
  for (const std::byte byte : *window) bits = bits << 8 | std::to_integer<std::uint64_t>(byte);
  const double seconds = std::bit_cast<double>(bits) + kReferenceDate;
  constexpr double kYear1 = -62135596800;
  constexpr double kYear10000 = 253402300800;
  if (!(seconds >= kYear1 && seconds < kYear10000)) return std::nullopt;
  return Date(std::chrono::microseconds(std::llround(seconds * 1e6)));
}

/// libplist tells numbers above the signed range from negative ones only when it compares them.
Value integerOf(plist_t node) {
  std::uint64_t number = 0;
  plist_get_uint_val(node, &number);
  const NativeHandle sameAsSigned(plist_new_uint(number));
  if (plist_compare_node_value(node, sameAsSigned.get())) return static_cast<std::int64_t>(number);
  return number;
}

/// Makes values of libplist's nodes; what went wrong stays in `complaint`.
class Converter {
 public:
  bool convert(plist_t node, Value& out) {
    switch (plist_get_node_type(node)) {
      case PLIST_BOOLEAN:
        return boolean(node, out);
      case PLIST_UINT:
        out = integerOf(node);
        return true;
      case PLIST_REAL:
        return real(node, out);
      case PLIST_STRING:
        return string(node, out);
      case PLIST_DATE:
        return date(node, out);
      case PLIST_DATA:
        return data(node, out);
      case PLIST_UID:
        return uid(node, out);
      case PLIST_ARRAY:
        return array(node, out);
      case PLIST_DICT:
        return dictionary(node, out);
      default:
        return fail("an object of no known type");
    }
  }

  [[nodiscard]] const std::string& complaint() const { return complaint_; }
  /// In all dictionaries together.
  [[nodiscard]] std::uint64_t keys() const { return keys_; }
  /// Some dictionary had a key twice.
  [[nodiscard]] bool hasRepeated() const { return hasRepeated_; }

 private:
  bool fail(std::string complaint) {
    complaint_ = std::move(complaint);
    return false;
  }

  static bool boolean(plist_t node, Value& out) {
    std::uint8_t flag = 0;
    plist_get_bool_val(node, &flag);
    out = flag != 0;
    return true;
  }

  static bool real(plist_t node, Value& out) {
    double number = 0;
    plist_get_real_val(node, &number);
    out = number;
    return true;
  }

  bool string(plist_t node, Value& out) {
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    const std::string_view view(text ? text : "", static_cast<std::size_t>(length));
    if (!isUTF8(view)) return fail("text that is not UTF-8");
    out = view;
    return true;
  }

  bool date(plist_t node, Value& out) {
    const auto date = dateOf(node);
    if (!date) return fail("a date outside the years 1 to 9999");
    out = *date;
    return true;
  }

  static bool data(plist_t node, Value& out) {
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    out = Data(std::string(bytes ? bytes : "", static_cast<std::size_t>(length)));
    return true;
  }

  static bool uid(plist_t node, Value& out) {
    Value::UID number;
    plist_get_uid_val(node, &number.number);
    out = number;
    return true;
  }

  bool array(plist_t node, Value& out) {
    out = Array();
    out.array()->reserve(plist_array_get_size(node));
    plist_array_iter native = nullptr;
    plist_array_new_iter(node, &native);
    const Handle<void, std::free> owner(native);
    plist_t item = nullptr;
    for (plist_array_next_item(node, native, &item); item;
         plist_array_next_item(node, native, &item)) {
      if (!convert(item, out.array()->emplace_back())) return false;
    }
    return true;
  }

  bool dictionary(plist_t node, Value& out) {
    out = Dictionary();
    plist_dict_iter native = nullptr;
    plist_dict_new_iter(node, &native);
    const Handle<void, std::free> owner(native);
    for (;; ++keys_) {
      char* key = nullptr;
      plist_t item = nullptr;
      plist_dict_next_item(node, native, &key, &item);
      const AllocatedText keyOwner(key);
      if (!item) break;
      if (!key || !isUTF8(key)) return fail("a key that is not UTF-8");
      const auto [entry, isNew] = out.dictionary()->try_emplace(key);
      hasRepeated_ = hasRepeated_ || !isNew;
      if (!convert(item, entry->second)) return false;
    }
    const Dictionary& filled = *out.dictionary();
    return filling_.add(filled) || fail(DictionaryFilling::complaint(filled.size()));
  }

  DictionaryFilling filling_;
  std::uint64_t keys_ = 0;
  bool hasRepeated_ = false;
  std::string complaint_;
};

using NativeReader = void (*)(const char*, std::uint32_t, plist_t*);

/// What a repeated key means; libplist takes the last one in XML.
enum class Repeated { accepted, refused };

/// `keys`: how many the text has, where that is known.
Result<Value> parseNative(std::string_view form, std::string_view text, NativeReader reader,
                          Repeated repeated, std::optional<std::uint64_t> keys = {}) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    return listError(form, format("%llu bytes are too many", std::uint64_t{text.size()}));
  }
  plist_t root = nullptr;
  reader(text.data(), static_cast<std::uint32_t>(text.size()), &root);
  const NativeHandle owner(root);
  if (!root) return listError(form, "malformed");
  Value value;
  Converter converter;
  if (!converter.convert(root, value)) return listError(form, converter.complaint());
  const bool hasRepeated =
      converter.hasRepeated() || converter.keys() != keys.value_or(converter.keys());
  if (hasRepeated && repeated == Repeated::refused) {
    return listError(form, "a dictionary has a key twice");
  }
  return value;
}

Result<Value> parseXMLText(std::string_view text) {
  std::string storage;
  const auto checked = checkedXMLPropertyList(text, storage);
  if (!checked) return checked.error();
  return parseNative("XML", checked->text, plist_from_xml, Repeated::accepted);
}

Result<Value> parseBinary(Bytes bytes, Repeated repeated = Repeated::accepted) {
  const auto checked = checkBinaryPropertyList(bytes);
  if (!checked) return checked.error();
  return parseNative("binary", textOf(bytes), plist_from_bin, repeated);
}

bool looksLikeXML(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  for (const std::string_view start : {"<?xml", "<!DOCTYPE", "<!--", "<plist"}) {
    if (text.starts_with(start)) return true;
  }
  return false;
}

}  // namespace

Result<Value> parse(Bytes bytes) {
  if (textOf(bytes).starts_with("bplist")) return parseBinary(bytes);
  std::string storage;
  const auto text = unicodeText(bytes, storage);
  if (!text) return listError("text", "ill-formed UTF-16 or UTF-32");
  if (looksLikeXML(*text)) return parseXMLText(*text);
  if (!isUTF8(*text)) return listError("text", "neither UTF-8 nor UTF-16");
  return parseOldStylePropertyList(*text);
}

Result<Value> parseUnambiguous(Bytes bytes) {
  if (textOf(bytes).starts_with("bplist")) return parseBinary(bytes, Repeated::refused);
  std::string storage;
  const auto text = unicodeText(bytes, storage);
  if (!text || !looksLikeXML(*text)) return listError("XML", "neither XML nor binary");
  std::string rewritten;
  const auto checked = checkedXMLPropertyList(*text, rewritten);
  if (!checked) return checked.error();
  if (text->find_first_not_of(" \t\r\n", checked->end) != std::string_view::npos) {
    return listError("XML",
                     format("goes on after its end at byte %llu", std::uint64_t{checked->end}));
  }
  return parseNative("XML", checked->text, plist_from_xml, Repeated::refused, checked->keys);
}

Result<Value> parseXML(Bytes bytes) {
  std::string storage;
  const auto text = unicodeText(bytes, storage);
  if (!text) return listError("XML", "ill-formed UTF-16 or UTF-32");
  return parseXMLText(*text);
}

std::optional<Dictionary> dictionaryWithContentsOfFile(const std::filesystem::path& path) {
  const auto content = FileManager::contentsOfFile(path);
  // As a text it would be an empty dictionary of the old form; as a file it is a failed write.
  if (!content || content->empty()) return std::nullopt;
  auto value = parse(content->bytes());
  if (!value || !value->dictionary()) return std::nullopt;
  return std::move(*value->dictionary());
}

}  // namespace foundation::PropertyList
