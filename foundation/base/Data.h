#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/base/Bytes.h"

namespace foundation {

/// Immutable bytes that are shared, never copied: copying a `Data` copies a pointer and a length.
/// Safe to read from several threads.
class Data {
 public:
  Data() = default;
  explicit Data(std::vector<std::byte> bytes) {
    auto owner = std::make_shared<const std::vector<std::byte>>(std::move(bytes));
    bytes_ = *owner;
    owner_ = std::move(owner);
  }
  explicit Data(std::string text) {
    auto owner = std::make_shared<const std::string>(std::move(text));
    bytes_ = bytesOf(*owner);
    owner_ = std::move(owner);
  }
  /// Bytes that `owner` keeps alive (a mapping, a library's buffer).
  Data(std::shared_ptr<const void> owner, Bytes bytes) : owner_(std::move(owner)), bytes_(bytes) {}

  static Data copyOf(Bytes bytes) {
    return Data(std::vector<std::byte>(bytes.begin(), bytes.end()));
  }

  [[nodiscard]] Bytes bytes() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }
  [[nodiscard]] bool empty() const { return bytes_.empty(); }
  /// The bytes as characters; not necessarily UTF-8.
  [[nodiscard]] std::string_view text() const { return textOf(bytes_); }

  friend bool operator==(const Data& a, const Data& b) { return a.text() == b.text(); }

 private:
  std::shared_ptr<const void> owner_;
  Bytes bytes_;
};

}  // namespace foundation
