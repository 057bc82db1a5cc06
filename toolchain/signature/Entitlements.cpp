#include "toolchain/signature/Entitlements.h"

#include <array>

#include "foundation/base/Text.h"
#include "foundation/crypto/DER.h"
#include "foundation/format/PropertyList.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/CodeDirectory.h"

namespace toolchain {

namespace {

namespace der = foundation::DER;
using foundation::Array;
using foundation::Dictionary;
using foundation::Value;

constexpr std::uint8_t kEnvelopeTag = 0x70;    // [APPLICATION 16] constructed
constexpr std::uint8_t kDictionaryTag = 0xb0;  // [CONTEXT 16] constructed
constexpr std::uint8_t kTextTag = 0x0c;        // UTF8String
constexpr std::uint64_t kFormVersion = 1;

using FlaggedKey = std::pair<std::string_view, std::uint64_t>;
constexpr std::array kFlaggedKeys = {
    FlaggedKey{"get-task-allow", execseg::kAllowUnsigned},
    FlaggedKey{"run-unsigned-code", execseg::kAllowUnsigned},
    FlaggedKey{"com.apple.private.cs.debugger", execseg::kDebugger},
    FlaggedKey{"dynamic-codesigning", execseg::kJIT},
    FlaggedKey{"com.apple.private.skip-library-validation", execseg::kSkipLibraryValidation},
    FlaggedKey{"com.apple.private.amfi.can-load-cdhash", execseg::kCanLoadCDHash},
    FlaggedKey{"com.apple.private.amfi.can-execute-cdhash", execseg::kCanExecuteCDHash},
};

/// What neither form of entitlements can hold; empty for what they can.
std::string_view unsupportedType(Value::Type type) {
  constexpr std::string_view kOther = "of a type that entitlements cannot hold";
  using Row = std::pair<Value::Type, std::string_view>;
  constexpr std::array<Row, 6> kUnsupported = {{{Value::Type::real, "a real number"},
                                                {Value::Type::date, "a date"},
                                                {Value::Type::data, "data"},
                                                {Value::Type::null, kOther},
                                                {Value::Type::uid, kOther},
                                                {Value::Type::error, kOther}}};
  const auto* row = std::ranges::find(kUnsupported, type, &Row::first);
  return row == kUnsupported.end() ? std::string_view() : row->second;
}

/// Fails with the key path of the first value that has no DER form.
Result<> checkEncodable(const Value& value, const std::string& place) {
  if (const auto type = unsupportedType(value.type()); !type.empty()) {
    return failure("entitlements: the value of " + place + " is " + std::string(type));
  }
  if (const Array* array = value.array()) {
    for (std::size_t i = 0; i < array->size(); ++i) {
      auto checked = checkEncodable((*array)[i], place + '[' + std::to_string(i) + ']');
      if (!checked) return checked;
    }
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    for (const auto& [key, element] : *dictionary) {
      std::string below = place;
      if (!below.empty()) below += '.';
      below += key;
      auto checked = checkEncodable(element, below);
      if (!checked) return checked;
    }
  }
  return {};
}

/// Two's complement in the fewest bytes; `isNegative` extends the sign beyond 64 bits.
std::string integerContent(std::uint64_t bits, bool isNegative) {
  std::string content(1, isNegative ? '\xff' : '\0');
  for (int shift = 56; shift >= 0; shift -= 8) content += static_cast<char>(bits >> shift);
  const auto isHigh = [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; };
  std::size_t start = 0;
  while (start + 1 < content.size() && content[start] == (isNegative ? '\xff' : '\0') &&
         isHigh(content[start + 1]) == isNegative) {
    ++start;
  }
  return content.substr(start);
}

std::string encodeDictionary(const Dictionary& dictionary);

std::string encodeValue(const Value& value) {
  if (const bool* flag = value.boolean()) {
    return der::element(der::kBoolean, std::string(1, *flag ? '\xff' : '\0'));
  }
  if (const auto* number = value.integer()) {
    return der::element(der::kInteger,
                        integerContent(static_cast<std::uint64_t>(*number), *number < 0));
  }
  if (const auto* number = value.unsignedInteger()) {
    return der::element(der::kInteger, integerContent(*number, false));
  }
  if (const auto* text = value.string()) return der::element(kTextTag, *text);
  if (const auto* array = value.array()) {
    std::string content;
    for (const Value& element : *array) content += encodeValue(element);
    return der::element(der::kSequence, content);
  }
  return encodeDictionary(*value.dictionary());
}

std::string encodeDictionary(const Dictionary& dictionary) {
  std::string content;
  for (const auto& [key, value] : dictionary) {
    content += der::element(der::kSequence, der::element(kTextTag, key) + encodeValue(value));
  }
  return der::element(kDictionaryTag, content);
}

std::string encodeEnvelope(const Dictionary& dictionary) {
  return der::element(kEnvelopeTag,
                      der::element(der::kInteger, integerContent(kFormVersion, false)) +
                          encodeDictionary(dictionary));
}

foundation::Error malformed(std::string_view what) {
  return failure("DER entitlements: " + std::string(what));
}

Result<Value> decodeInteger(Bytes content) {
  if (content.empty() || content.size() > 9)
    return malformed("an integer has no bytes or too many");
  const bool isNegative = (content[0] & std::byte{0x80}) != std::byte{0};
  std::uint64_t bits = isNegative ? ~std::uint64_t{0} : 0;
  for (const std::byte byte : content) bits = (bits << 8) | std::to_integer<std::uint64_t>(byte);
  return isNegative ? Value(static_cast<std::int64_t>(bits)) : Value(bits);
}

Result<Dictionary> decodeDictionary(Bytes content, int depth);
Result<Value> decodeArray(Bytes content, int depth);

Result<Value> decodeValue(const der::Element& element, int depth) {
  if (depth > foundation::PropertyList::kMaximumDepth) return malformed("nested too deeply");
  switch (element.tag) {
    case der::kBoolean:
      if (element.content.size() != 1) return malformed("a boolean is not one byte");
      return Value(element.content[0] != std::byte{0});
    case der::kInteger:
      return decodeInteger(element.content);
    case kTextTag:
      return Value(foundation::textOf(element.content));
    case der::kSequence:
      return decodeArray(element.content, depth);
    case kDictionaryTag:
      return decodeDictionary(element.content, depth).map([](Dictionary dictionary) {
        return Value(std::move(dictionary));
      });
    default:
      return malformed("tag " + hex(element.tag) + " is unknown");
  }
}

Result<Value> decodeArray(Bytes content, int depth) {
  Array array;
  der::Reader reader(content);
  while (!reader.atEnd()) {
    const auto element = reader.next();
    if (!element) return malformed("an element of an array is truncated");
    auto value = decodeValue(*element, depth + 1);
    if (!value) return value;
    array.push_back(std::move(*value));
  }
  return Value(std::move(array));
}

Result<Dictionary> decodeDictionary(Bytes content, int depth) {
  Dictionary dictionary;
  der::Reader reader(content);
  while (!reader.atEnd()) {
    const auto pair = reader.next(der::kSequence);
    if (!pair) return malformed("an entry of a dictionary is not a sequence");
    der::Reader parts(pair->content);
    const auto key = parts.next(kTextTag);
    const auto element = parts.next();
    if (!key || !element || !parts.atEnd()) return malformed("an entry is not a key and a value");
    auto value = decodeValue(*element, depth + 1);
    if (!value) return value.error();
    dictionary.insert_or_assign(std::string(foundation::textOf(key->content)), std::move(*value));
  }
  return dictionary;
}

}  // namespace

Result<Entitlements> parseEntitlements(Bytes file) {
  // XML is signed as given, byte for byte.
  const bool isXML = foundation::trimmed(foundation::textOf(file)).starts_with('<');
  auto value = (isXML ? foundation::PropertyList::parseUnambiguous(file)
                      : foundation::PropertyList::parse(file))
                   .mapError(within("entitlements"));
  if (!value) return value.error();
  Dictionary* dictionary = value->dictionary();
  if (!dictionary) return failure("entitlements: the property list is not a dictionary");
  auto entitlements = makeEntitlements(std::move(*dictionary));
  if (entitlements && isXML) entitlements->xml = foundation::textOf(file);
  return entitlements;
}

Result<Entitlements> makeEntitlements(Dictionary dictionary) {
  const Value value(std::move(dictionary));
  return checkEncodable(value, "")
      .andThen(
          [&] { return foundation::PropertyList::xml(value).mapError(within("entitlements")); })
      .map([&](std::string xml) {
        return Entitlements{std::move(xml), *value.dictionary()};
      });
}

std::vector<std::byte> entitlementsBlob(const Entitlements& entitlements) {
  return makeBlob(magic::kEntitlements, foundation::bytesOf(entitlements.xml));
}

std::vector<std::byte> entitlementsDERBlob(const Entitlements& entitlements) {
  return makeBlob(magic::kEntitlementsDER, encodeEntitlements(entitlements.dictionary));
}

std::vector<std::byte> encodeEntitlements(const Dictionary& dictionary) {
  const std::string text = encodeEnvelope(dictionary);
  const Bytes bytes = foundation::bytesOf(text);
  return {bytes.begin(), bytes.end()};
}

Result<Dictionary> decodeEntitlements(Bytes bytes) {
  const auto envelope = der::single(bytes, kEnvelopeTag);
  if (!envelope) return malformed("the outermost element is not of the current form");
  der::Reader parts(envelope->content);
  const auto version = parts.next(der::kInteger);
  const auto content = parts.next(kDictionaryTag);
  if (!version || !content || !parts.atEnd())
    return malformed("expected a version and a dictionary");
  auto dictionary = decodeDictionary(content->content, 0);
  // There is one encoding of a dictionary, so writing it again finds every other one.
  if (dictionary && encodeEnvelope(*dictionary) != foundation::textOf(bytes)) {
    return malformed("not in canonical form");
  }
  return dictionary;
}

std::uint64_t executableSegmentFlags(const Dictionary& entitlements) {
  std::uint64_t flags = 0;
  for (const auto& [key, flag] : kFlaggedKeys) {
    const Value* value = foundation::find(entitlements, key);
    if (value && *value == Value(true)) flags |= flag;
  }
  return flags;
}

}  // namespace toolchain
