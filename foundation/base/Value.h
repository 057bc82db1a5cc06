#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "foundation/base/Data.h"

namespace foundation {

struct Error;

/// A point in time, UTC; property lists keep fractions of a second.
using Date = std::chrono::sys_time<std::chrono::microseconds>;
Date currentDate();

/// A property-list or JSON value. A present JSON null is a value; absence is an empty
/// `std::optional<Value>` or a null `const Value*`, never a kind of value.
class Value {
 public:
  using Array = std::vector<Value>;
  using Dictionary = std::map<std::string, Value, std::less<>>;
  struct Null {
    friend bool operator==(Null, Null) { return true; }
  };
  /// An object reference of a keyed archive; only in binary property lists.
  struct UID {
    std::uint64_t number = 0;
    friend bool operator==(UID, UID) = default;
  };
  enum class Type {
    null,
    boolean,
    integer,
    unsignedInteger,
    real,
    string,
    date,
    data,
    uid,
    array,
    dictionary,
    error
  };

  Value() = default;
  /// Only `bool`: pointers must not convert to a boolean.
  Value(std::same_as<bool> auto value) : storage_(value) {}
  Value(int value) : storage_(std::int64_t{value}) {}
  Value(std::int64_t value) : storage_(value) {}
  /// Stored as a signed integer when it fits.
  Value(std::uint64_t value);
  Value(double value) : storage_(value) {}
  Value(std::string value) : storage_(std::move(value)) {}
  Value(std::string_view value) : storage_(std::string(value)) {}
  Value(const char* value) : storage_(std::string(value)) {}
  Value(Date value) : storage_(value) {}
  Value(Data value) : storage_(std::move(value)) {}
  Value(UID value) : storage_(value) {}
  Value(Array value) : storage_(std::move(value)) {}
  Value(Dictionary value) : storage_(std::move(value)) {}
  /// An error inside another error's user info; never in property lists or JSON.
  Value(Error value);

  [[nodiscard]] Type type() const { return static_cast<Type>(storage_.index()); }

  // Null when the value is of another type.
  [[nodiscard]] const std::string* string() const { return std::get_if<std::string>(&storage_); }
  [[nodiscard]] const Data* data() const { return std::get_if<Data>(&storage_); }
  [[nodiscard]] const Date* date() const { return std::get_if<Date>(&storage_); }
  [[nodiscard]] const double* real() const { return std::get_if<double>(&storage_); }
  [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&storage_); }
  [[nodiscard]] const std::int64_t* integer() const { return std::get_if<std::int64_t>(&storage_); }
  [[nodiscard]] const std::uint64_t* unsignedInteger() const {
    return std::get_if<std::uint64_t>(&storage_);
  }
  [[nodiscard]] const UID* uid() const { return std::get_if<UID>(&storage_); }
  [[nodiscard]] const Array* array() const { return std::get_if<Array>(&storage_); }
  [[nodiscard]] const Dictionary* dictionary() const { return std::get_if<Dictionary>(&storage_); }
  [[nodiscard]] const Error* error() const;
  Array* array() { return std::get_if<Array>(&storage_); }
  Dictionary* dictionary() { return std::get_if<Dictionary>(&storage_); }

  /// Null when this is not a dictionary or lacks `key`.
  [[nodiscard]] const Value* find(std::string_view key) const;

  /// The platform's boolean reading of numbers and strings (`foundation::boolValue`); absent for
  /// every other type.
  [[nodiscard]] std::optional<bool> boolValue() const;

  /// The platform's integer reading of numbers and strings (a string's leading digits, 0 without
  /// any; reals are truncated and clamped); absent for every other type.
  [[nodiscard]] std::optional<std::int64_t> integerValue() const;

  /// Same type and content; a boolean never equals a number. Errors compare by identity.
  friend bool operator==(const Value& a, const Value& b);

 private:
  std::variant<Null, bool, std::int64_t, std::uint64_t, double, std::string, Date, Data, UID, Array,
               Dictionary, std::shared_ptr<const Error>>
      storage_;
};

using Array = Value::Array;
using Dictionary = Value::Dictionary;

const Value* find(const Dictionary& dictionary, std::string_view key);

/// Each is absent or null when the key is missing or its value has another type.
std::optional<std::string> stringAt(const Dictionary& dictionary, std::string_view key);
std::optional<Date> dateAt(const Dictionary& dictionary, std::string_view key);
const Array* arrayAt(const Dictionary& dictionary, std::string_view key);
const Dictionary* dictionaryAt(const Dictionary& dictionary, std::string_view key);
/// `Value::boolValue` of the value under `key`; false when there is none.
bool boolAt(const Dictionary& dictionary, std::string_view key);

/// As on the platform, an absent value equals nothing, not even another absent value.
template <class T>
bool isEqual(const std::optional<T>& a, const std::optional<T>& b) {
  return a && b && *a == *b;
}

}  // namespace foundation
