#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Bytes.h"

/// The part of ASN.1's encoding rules (ITU-T X.690) that signatures need: only one-byte tags.
/// Encoded bytes are strings, since they are concatenated.
namespace foundation::DER {

inline constexpr std::uint8_t kBoolean = 0x01;
inline constexpr std::uint8_t kInteger = 0x02;
inline constexpr std::uint8_t kOctetString = 0x04;
inline constexpr std::uint8_t kNull = 0x05;
inline constexpr std::uint8_t kObjectIdentifier = 0x06;
inline constexpr std::uint8_t kSequence = 0x30;
inline constexpr std::uint8_t kSet = 0x31;
/// Context-specific, constructed.
inline constexpr std::uint8_t kContext0 = 0xa0;

/// With the shortest form of the length.
std::string element(std::uint8_t tag, std::string_view content);
/// A SET OF these whole elements, sorted as DER requires.
std::string setOf(std::vector<std::string> elements);
/// A whole element from the dotted form; empty if that is malformed.
std::string objectIdentifier(std::string_view dotted);

struct Header {
  std::size_t size = 0;
  /// 0 if indefinite, as BER allows for constructed elements.
  std::size_t length = 0;
  bool isConstructed = false;
  bool isIndefinite = false;
};

/// The header at the start of `bytes`; absent if it is malformed, has a tag of several bytes, or
/// its content exceeds `bytes`.
std::optional<Header> headerOf(Bytes bytes);

/// Points into bytes that somebody else owns.
struct Element {
  std::uint8_t tag = 0;
  Bytes content;
  /// Header and content.
  Bytes whole;
};

/// Iterates over consecutive elements of definite length.
class Reader {
 public:
  explicit Reader(Bytes bytes) : rest_(bytes) {}
  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  /// Absent at the end, and, without advancing, if the element is malformed or truncated.
  std::optional<Element> next();
  /// The same for an element with this tag; absent, without advancing, if the tag differs.
  std::optional<Element> next(std::uint8_t tag);

 private:
  Bytes rest_;
};

/// The only element of `bytes`; absent if it has another tag or bytes follow it.
std::optional<Element> single(Bytes bytes, std::uint8_t tag);

/// The dotted form of an object identifier's content; empty if it is malformed or longer than a few
/// hundred bytes.
std::string dotted(Bytes identifier);

}  // namespace foundation::DER
