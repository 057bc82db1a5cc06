#include <algorithm>
#include <bit>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/format/private/PropertyListReaders.h"

namespace foundation::PropertyList {

namespace {

/// The upper half of a marker byte.
enum Type : unsigned {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kASCII = 0x5,
  kUTF16 = 0x6,
  kUID = 0x8,
  kArray = 0xa,
  kDictionary = 0xd
};

constexpr std::uint64_t kHeaderSize = 8;
constexpr std::uint64_t kTrailerSize = 32;
/// Seconds between 1970 and 2001, from which property lists count.
constexpr double kReferenceDate = 978307200;

struct Object {
  unsigned type = 0;
  /// The lower half of the marker.
  unsigned info = 0;
  /// Of bytes, UTF-16 units or entries.
  std::uint64_t count = 0;
  /// Where its content begins.
  std::uint64_t content = 0;
};

std::uint64_t bigEndian(Bytes bytes) {
  std::uint64_t number = 0;
  for (const std::byte byte : bytes) number = number << 8 | std::to_integer<std::uint64_t>(byte);
  return number;
}

std::string textOfUTF16(Bytes bytes) {
  std::u16string units;
  for (; !bytes.empty(); bytes = bytes.subspan(2)) {
    units += static_cast<char16_t>(bigEndian(bytes.first(2)));
  }
  return utf8FromUTF16(units);
}

class BinaryReader {
 public:
  BinaryReader(Bytes bytes, Ambiguity ambiguity) : bytes_(bytes), ambiguity_(ambiguity) {}

  Result<Value> read() {
    Value top;
    if (!readTrailer() || !value(top_, 0, top)) return *error_;
    return top;
  }

 private:
  bool fail(std::string_view complaint) {
    error_ = readError("binary property list", complaint);
    return false;
  }

  bool failAt(std::uint64_t index, std::string_view complaint) {
    return fail(format("object %llu of %llu %@", index, count_, complaint));
  }

  /// A number of 1 to 8 bytes that are known to lie inside.
  [[nodiscard]] std::uint64_t numberAt(std::uint64_t offset, std::uint64_t size) const {
    return bigEndian(bytes_.subspan(offset, size));
  }

  bool readTrailer() {
    if (bytes_.size() < kHeaderSize + kTrailerSize) {
      return fail("shorter than its header and trailer");
    }
    if (!textOf(bytes_).starts_with("bplist00")) return fail("malformed");
    const std::uint64_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = numberAt(trailer + 6, 1);
    referenceSize_ = numberAt(trailer + 7, 1);
    count_ = numberAt(trailer + 8, 8);
    top_ = numberAt(trailer + 16, 8);
    table_ = numberAt(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      return fail(format("offsets of %llu and references of %llu bytes; 1 to 8 are possible",
                         offsetSize_, referenceSize_));
    }
    if (table_ < kHeaderSize || table_ > trailer || count_ > (trailer - table_) / offsetSize_) {
      return fail(format("the table of %llu offsets at %llu lies outside", count_, table_));
    }
    if (top_ >= count_) return fail(format("the top object %llu of %llu is missing", top_, count_));
    isOpen_.resize(count_);
    measured_.resize(count_);
    roomLimit_ = 1'000'000 + 64 * std::uint64_t{bytes_.size()};
    return true;
  }

  [[nodiscard]] std::optional<Object> objectAt(std::uint64_t index) const {
    const std::uint64_t offset = numberAt(table_ + index * offsetSize_, offsetSize_);
    if (offset < kHeaderSize || offset >= table_) return std::nullopt;
    const auto marker = static_cast<unsigned>(numberAt(offset, 1));
    Object object{marker >> 4, marker & 15, marker & 15, offset + 1};
    const bool isCounted = object.type >= kData && object.type != kUID;
    if (!isCounted || object.info != 15) return object;
    // The count is an integer object of its own.
    if (object.content >= table_) return std::nullopt;
    const auto size = static_cast<unsigned>(numberAt(object.content, 1));
    if (size >> 4 != kInteger || (size & 15) > 3) return std::nullopt;
    const std::uint64_t length = std::uint64_t{1} << (size & 15);
    if (length > table_ - object.content - 1) return std::nullopt;
    object.count = numberAt(object.content + 1, length);
    object.content += 1 + length;
    return object;
  }

  /// The content of an object without children; absent for one of no known type or that reaches
  /// outside.
  [[nodiscard]] std::optional<Bytes> contentOf(const Object& object) const {
    bool isKnown = true;
    std::uint64_t size = std::uint64_t{1} << object.info;
    switch (object.type) {
      case kSimple:
        isKnown = object.info == 8 || object.info == 9;
        size = 0;
        break;
      case kInteger:
        isKnown = object.info <= 4;
        break;
      case kReal:
        isKnown = object.info == 2 || object.info == 3;
        break;
      case kDate:
        isKnown = object.info == 3;
        break;
      case kUID:
        isKnown = object.info <= 7;
        size = object.info + 1;
        break;
      case kData:
      case kASCII:
        size = object.count;
        break;
      case kUTF16:
        isKnown = object.count <= table_ / 2;
        size = object.count * 2;
        break;
      default:
        isKnown = false;
    }
    return isKnown ? slice(bytes_.first(table_), object.content, size) : std::nullopt;
  }

  bool value(std::uint64_t index, int depth, Value& out) {
    if (isOpen_[index]) return failAt(index, "contains itself");
    const auto object = objectAt(index);
    if (!object) return failAt(index, "lies outside or has no readable length");
    constexpr std::uint64_t kRoomOfValue = 16;
    room_ += kRoomOfValue;
    if (object->type == kArray || object->type == kDictionary) {
      if (depth == kMaximumDepth) {
        return fail(format("nested deeper than %d levels", kMaximumDepth));
      }
      if (measured_[index] > roomLimit_ - std::min(room_, roomLimit_)) {
        return failAt(index, "repeats shared objects too often");
      }
      const std::uint64_t before = room_;
      isOpen_[index] = true;
      const bool isRead = container(index, *object, depth + 1, out);
      isOpen_[index] = false;
      measured_[index] = room_ - before;
      return isRead;
    }
    const auto content = contentOf(*object);
    if (!content) {
      return failAt(index, format("(marker 0x%x%x) is truncated or of no known type", object->type,
                                  object->info));
    }
    room_ += content->size();
    return plain(*object, *content, out);
  }

  bool plain(const Object& object, Bytes content, Value& out) {
    switch (object.type) {
      case kSimple:
        out = object.info == 9;
        return true;
      case kReal:
        out = content.size() == 4
                  ? std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(content)))
                  : std::bit_cast<double>(bigEndian(content));
        return true;
      case kDate:
        return date(std::bit_cast<double>(bigEndian(content)), out);
      case kData:
        out = Data::copyOf(content);
        return true;
      case kASCII:
        return narrowText(textOf(content), out);
      case kUTF16:
        out = textOfUTF16(content);
        return true;
      case kUID:
        out = Value::UID{bigEndian(content)};
        return true;
      default:
        return integer(content, out);
    }
  }

  /// Ends at a NUL, as on the platform. Some writers put UTF-8 here.
  bool narrowText(std::string_view text, Value& out) {
    const std::string_view whole = text;
    text = whole.substr(0, whole.find('\0'));
    isCutAtNUL_ = text.size() < whole.size();
    if (!isUTF8(text)) return fail("text that is not UTF-8");
    out = text;
    return true;
  }

  /// Eight bytes are signed, fewer are not, and of sixteen only the lower half says anything.
  static bool integer(Bytes content, Value& out) {
    const std::uint64_t number = bigEndian(content);
    out = content.size() == 8 ? Value(static_cast<std::int64_t>(number)) : Value(number);
    return true;
  }

  bool date(double secondsSince2001, Value& out) {
    const auto date = dateAt(secondsSince2001 + kReferenceDate);
    if (!date) return fail("a date outside the years 1 to 9999");
    out = *date;
    return true;
  }

  bool container(std::uint64_t index, const Object& object, int depth, Value& out) {
    const bool isDictionary = object.type == kDictionary;
    if (object.count > (table_ - object.content) / (referenceSize_ * (isDictionary ? 2 : 1))) {
      return failAt(index, format("has %llu entries, more than there is room for", object.count));
    }
    out = isDictionary ? Value(Dictionary()) : Value(Array());
    for (std::uint64_t i = 0; i < object.count; ++i) {
      if (!(isDictionary ? entry(index, object, i, depth, *out.dictionary())
                         : child(index, object, i, depth, out.array()->emplace_back()))) {
        return false;
      }
    }
    return true;
  }

  /// What the reference of this number in a container leads to.
  bool child(std::uint64_t index, const Object& object, std::uint64_t number, int depth,
             Value& out) {
    const std::uint64_t child = numberAt(object.content + number * referenceSize_, referenceSize_);
    if (child >= count_) return failAt(index, format("refers to the missing object %llu", child));
    if (!value(child, depth, out)) return false;
    return room_ <= roomLimit_ || failAt(index, "repeats shared objects too often");
  }

  /// All references to keys come before those to values.
  bool entry(std::uint64_t index, const Object& object, std::uint64_t number, int depth,
             Dictionary& out) {
    Value key;
    Value value;
    isCutAtNUL_ = false;
    if (!child(index, object, number, depth, key)) return false;
    if (!key.string() || isCutAtNUL_ || key.string()->find('\0') != std::string::npos) {
      return failAt(index, "has a key that is not text or contains a NUL");
    }
    if (!child(index, object, object.count + number, depth, value)) return false;
    return set(out, *key.string(), std::move(value)) || ambiguity_ == Ambiguity::accepted ||
           fail("a dictionary has a key twice");
  }

  Bytes bytes_;
  Ambiguity ambiguity_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;
  /// What the values take, counted in bytes. An object may be shared, and each place gets a copy;
  /// the limit keeps time and memory linear in the size of the file.
  std::uint64_t room_ = 0;
  std::uint64_t roomLimit_ = 0;
  /// Whether the narrow text read last went on after a NUL.
  bool isCutAtNUL_ = false;
  /// The objects that contain the one being read.
  std::vector<bool> isOpen_;
  /// What a container took when it was read last, so that one too many is not read at all.
  std::vector<std::uint64_t> measured_;
  std::optional<Error> error_;
};

}  // namespace

Result<Value> parseBinary(Bytes bytes, Ambiguity ambiguity) {
  return BinaryReader(bytes, ambiguity).read();
}

}  // namespace foundation::PropertyList
