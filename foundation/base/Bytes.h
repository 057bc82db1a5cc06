#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace foundation {

/// A non-owning view.
using Bytes = std::span<const std::byte>;

/// The window [offset, offset + size), or nothing when any of it lies outside `data`.
inline std::optional<Bytes> slice(Bytes data, std::uint64_t offset, std::uint64_t size) {
  if (offset > data.size() || size > data.size() - offset) return std::nullopt;
  return data.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
}

/// The record at `offset` in the host's byte order, or nothing when it would leave `data`.
template <class T>
requires std::is_trivially_copyable_v<T> std::optional<T> readAt(Bytes data, std::uint64_t offset) {
  const auto window = slice(data, offset, sizeof(T));
  if (!window) return std::nullopt;
  T value;
  std::memcpy(&value, window->data(), sizeof value);
  return value;
}

/// True of an empty view, too.
inline bool isZero(Bytes bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::byte b) { return b == std::byte{0}; });
}

inline Bytes bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

/// The bytes as characters; no decoding, no copy.
inline std::string_view textOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace foundation
