#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Bytes.h"
#include "foundation/base/Result.h"

/// How the toolchain words its errors: where, what, which value.
namespace toolchain {

using foundation::Bytes;
using foundation::Result;

/// Key in an error's user info of the part of the description that callers also need alone.
inline constexpr std::string_view kDetailKey = "Detail";

/// An error of the toolchain: domain "ToolchainErrorDomain", code 1, `text` as description.
foundation::Error failure(std::string text);
/// `error` with "where: " before its description, and before its detail if it has one; domain and
/// code stay.
foundation::Error within(std::string_view where, const foundation::Error& error);
/// The same as a step for `Result::mapError`.
inline auto within(std::string where) {
  return
      [where = std::move(where)](const foundation::Error& error) { return within(where, error); };
}
/// "0xfade0cc0".
std::string hex(std::uint64_t value);

/// The number that `text` is, in decimal; absent when it is anything else or does not fit.
template <std::integral T>
std::optional<T> wholeNumber(std::string_view text) {
  T value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, value);
  return problem == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

}  // namespace toolchain
