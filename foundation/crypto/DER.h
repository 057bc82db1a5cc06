#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Bytes.h"

/// The little of ASN.1's encoding rules (ITU-T X.690) that signatures need: tags of one byte.
/// Encoded bytes are built in strings, since they are put together from pieces.
namespace foundation::DER {

inline constexpr std::uint8_t kBoolean = 0x01;
inline constexpr std::uint8_t kInteger = 0x02;
inline constexpr std::uint8_t kOctetString = 0x04;
inline constexpr std::uint8_t kNull = 0x05;
inline constexpr std::uint8_t kObjectIdentifier = 0x06;
inline constexpr std::uint8_t kUTCTime = 0x17;
inline constexpr std::uint8_t kGeneralizedTime = 0x18;
inline constexpr std::uint8_t kSequence = 0x30;
inline constexpr std::uint8_t kSet = 0x31;
/// Context-specific, constructed.
inline constexpr std::uint8_t kContext0 = 0xa0;

/// Tag, shortest length, content.
std::string element(std::uint8_t tag, std::string_view content);
/// A SET OF whole elements, put into the order that DER asks for.
std::string setOf(std::vector<std::string> elements);
/// From the dotted form; empty when that is malformed (fewer than two numbers, or one too large).
std::string objectIdentifier(std::string_view dotted);

struct Header {
  std::size_t size = 0;
  /// 0 when it is indefinite, which BER allows for constructed elements.
  std::size_t length = 0;
  bool isConstructed = false;
  bool isIndefinite = false;
};

/// The header that `bytes` begin with; absent when it is malformed, its tag has several bytes, or
/// its content would leave `bytes`.
std::optional<Header> headerOf(Bytes bytes);

/// One element inside bytes that somebody else owns.
struct Element {
  std::uint8_t tag = 0;
  Bytes content;
  /// Header and content.
  Bytes whole;
};

/// Walks over elements of definite length that follow each other.
class Reader {
 public:
  explicit Reader(Bytes bytes) : rest_(bytes) {}
  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  /// The next element; absent at the end, or when its header or content would leave the bytes.
  std::optional<Element> next();
  /// The next element when it has this tag; otherwise absent, and nothing is consumed.
  std::optional<Element> next(std::uint8_t tag);

 private:
  Bytes rest_;
};

/// The only element of `bytes`, which must have this tag and leave nothing behind it.
std::optional<Element> single(Bytes bytes, std::uint8_t tag);

/// The dotted form of an object identifier's content; empty when it is malformed.
std::string dotted(Bytes identifier);

}  // namespace foundation::DER
