#include "foundation/crypto/DER.h"

#include <algorithm>

#include "foundation/base/Text.h"
#include "foundation/crypto/OpenSSL.h"

namespace foundation::DER {

namespace {

constexpr std::uint8_t kLongTag = 0x1f;

std::uint8_t byteAt(Bytes bytes, std::size_t index) {
  return std::to_integer<std::uint8_t>(bytes[index]);
}

}  // namespace

std::string element(std::uint8_t tag, std::string_view content) {
  std::string out(1, static_cast<char>(tag));
  if (content.size() < 0x80) {
    out += static_cast<char>(content.size());
  } else {
    std::string length;
    for (std::size_t rest = content.size(); rest != 0; rest >>= 8) {
      length.insert(length.begin(), static_cast<char>(rest & 0xff));
    }
    out += static_cast<char>(0x80 | length.size());
    out += length;
  }
  out += content;
  return out;
}

std::string setOf(std::vector<std::string> elements) {
  std::sort(elements.begin(), elements.end());  // std::string compares bytes as unsigned
  return element(kSet, joined(elements, ""));
}

std::string objectIdentifier(std::string_view dotted) {
  // OpenSSL reads "1..2" as "1.0.2" and "1.2." as "1.2".
  if (dotted.find("..") != std::string_view::npos || dotted.ends_with('.')) return {};
  const OpenSSLErrorScope errors;
  const ASN1ObjectHandle object(OBJ_txt2obj(std::string(dotted).c_str(), 1));
  return object ? encoded(object.get(), i2d_ASN1_OBJECT) : std::string();
}

std::optional<Header> headerOf(Bytes bytes) {
  const OpenSSLErrorScope errors;
  const unsigned char* position = openSSLBytes(bytes);
  long length = 0;
  int tag = 0;
  int tagClass = 0;
  const int form = ASN1_get_object(&position, &length, &tag, &tagClass, std::ssize(bytes));
  constexpr int kMalformed = 0x80;
  constexpr int kIndefinite = 0x01;
  if ((form & kMalformed) || (byteAt(bytes, 0) & kLongTag) == kLongTag) return std::nullopt;
  return Header{static_cast<std::size_t>(position - openSSLBytes(bytes)),
                static_cast<std::size_t>(length), (form & V_ASN1_CONSTRUCTED) != 0,
                (form & kIndefinite) != 0};
}

std::optional<Element> Reader::next() {
  const auto header = headerOf(rest_);
  if (!header || header->isIndefinite) return std::nullopt;
  const Bytes whole = rest_.first(header->size + header->length);
  rest_ = rest_.subspan(whole.size());
  return Element{byteAt(whole, 0), whole.subspan(header->size), whole};
}

std::optional<Element> Reader::next(std::uint8_t tag) {
  if (rest_.empty() || byteAt(rest_, 0) != tag) return std::nullopt;
  return next();
}

std::optional<Element> single(Bytes bytes, std::uint8_t tag) {
  Reader reader(bytes);
  const auto found = reader.next(tag);
  return reader.atEnd() ? found : std::nullopt;
}

std::string dotted(Bytes identifier) {
  const OpenSSLErrorScope errors;
  const std::string whole = element(kObjectIdentifier, textOf(identifier));
  const unsigned char* position = openSSLBytes(bytesOf(whole));
  const ASN1ObjectHandle object(d2i_ASN1_OBJECT(nullptr, &position, std::ssize(whole)));
  return object ? foundation::dotted(object.get()) : std::string();
}

}  // namespace foundation::DER
