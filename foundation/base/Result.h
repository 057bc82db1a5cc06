#pragma once

#include <optional>
#include <utility>
#include <variant>

#include "foundation/base/Error.h"

namespace foundation {

/// A value, or the error that says why there is none.
template <class T = void>
class [[nodiscard]] Result {
 public:
  Result(T value) : storage_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : storage_(std::in_place_index<1>, std::move(error)) {}

  [[nodiscard]] bool ok() const { return storage_.index() == 0; }
  explicit operator bool() const { return ok(); }
  T& operator*() & { return std::get<0>(storage_); }
  const T& operator*() const& { return std::get<0>(storage_); }
  T&& operator*() && { return std::get<0>(std::move(storage_)); }
  T* operator->() { return &std::get<0>(storage_); }
  const T* operator->() const { return &std::get<0>(storage_); }
  [[nodiscard]] const Error& error() const { return std::get<1>(storage_); }
  Error& error() { return std::get<1>(storage_); }

 private:
  std::variant<T, Error> storage_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : error_(std::move(error)) {}

  [[nodiscard]] bool ok() const { return !error_; }
  explicit operator bool() const { return ok(); }
  [[nodiscard]] const Error& error() const { return *error_; }
  Error& error() { return *error_; }

 private:
  std::optional<Error> error_;
};

/// Where a caller may hand in a slot for the error of a failed operation, as the platform does.
using ErrorSlot = std::optional<Error>*;

inline void store(ErrorSlot slot, Error error) {
  if (slot) *slot = std::move(error);
}

}  // namespace foundation
