#pragma once

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "foundation/base/Error.h"

namespace foundation {

template <class T>
class Result;

namespace detail {
template <class T>
struct IsResult : std::false_type {};
template <class T>
struct IsResult<Result<T>> : std::true_type {};
}  // namespace detail

/// A value, or the error that says why there is none. `Result<>` has no value: it is success or an
/// error.
///
/// A function returns a `Result` or throws, and its header says which. Only `Interrupted` passes
/// through either kind. `andThen` and `map` hand the value on to the next step and pass an error
/// through untouched:
///
///     return open(path).andThen(parse).map([](Table table) { return table.size(); });
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
  [[nodiscard]] const Error& error() const& { return std::get<1>(storage_); }
  Error& error() & { return std::get<1>(storage_); }
  Error&& error() && { return std::get<1>(std::move(storage_)); }

  /// What `next` returns for the value, which must be a `Result` of any kind; else this error.
  template <class Next>
  auto andThen(Next&& next) && {
    using Outcome = std::remove_cvref_t<std::invoke_result_t<Next, T&&>>;
    static_assert(detail::IsResult<Outcome>::value, "andThen takes a step that may fail; see map");
    if (!ok()) return Outcome(std::move(*this).error());
    return std::invoke(std::forward<Next>(next), *std::move(*this));
  }
  template <class Next>
  auto andThen(Next&& next) const& {
    using Outcome = std::remove_cvref_t<std::invoke_result_t<Next, const T&>>;
    static_assert(detail::IsResult<Outcome>::value, "andThen takes a step that may fail; see map");
    if (!ok()) return Outcome(error());
    return std::invoke(std::forward<Next>(next), **this);
  }

  /// What `next`, which cannot fail, makes of the value (`Result<>` if it returns nothing); else
  /// this error.
  template <class Next>
  auto map(Next&& next) && {
    using Mapped = std::remove_cvref_t<std::invoke_result_t<Next, T&&>>;
    if (!ok()) return Result<Mapped>(std::move(*this).error());
    if constexpr (std::is_void_v<Mapped>) {
      std::invoke(std::forward<Next>(next), *std::move(*this));
      return Result<Mapped>();
    } else {
      return Result<Mapped>(std::invoke(std::forward<Next>(next), *std::move(*this)));
    }
  }
  template <class Next>
  auto map(Next&& next) const& {
    return Result(*this).map(std::forward<Next>(next));
  }

  /// The same value, or what `explain` makes of the error (more context, say).
  template <class Explain>
  Result mapError(Explain&& explain) && {
    if (ok()) return std::move(*this);
    return std::invoke(std::forward<Explain>(explain), std::move(*this).error());
  }

  /// Drops the error.
  std::optional<T> value() && {
    if (!ok()) return std::nullopt;
    return *std::move(*this);
  }

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
  [[nodiscard]] const Error& error() const& { return *error_; }
  Error& error() & { return *error_; }
  Error&& error() && { return *std::move(error_); }

  /// As above; `next` takes nothing.
  template <class Next>
  auto andThen(Next&& next) const& {
    using Outcome = std::remove_cvref_t<std::invoke_result_t<Next>>;
    static_assert(detail::IsResult<Outcome>::value, "andThen takes a step that may fail; see map");
    if (error_) return Outcome(*error_);
    return std::invoke(std::forward<Next>(next));
  }
  template <class Next>
  auto map(Next&& next) const& {
    using Mapped = std::remove_cvref_t<std::invoke_result_t<Next>>;
    static_assert(!std::is_void_v<Mapped>, "a step that gives nothing needs no map");
    if (error_) return Result<Mapped>(*error_);
    return Result<Mapped>(std::invoke(std::forward<Next>(next)));
  }
  template <class Explain>
  Result mapError(Explain&& explain) && {
    if (!error_) return {};
    return std::invoke(std::forward<Explain>(explain), *std::move(error_));
  }

 private:
  std::optional<Error> error_;
};

/// An optional out-parameter for the error of a failed operation, as on the platform; may be null.
using ErrorSlot = std::optional<Error>*;

inline void store(ErrorSlot slot, Error error) {
  if (slot) *slot = std::move(error);
}

}  // namespace foundation
