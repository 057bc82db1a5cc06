#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "foundation/base/URL.h"

/// A symbol file for the code-mapping service.
class QVTCodeMapping {
 public:
  static std::shared_ptr<QVTCodeMapping> mappingWithURL(const foundation::URL& url) {
    return initWithURL(url);
  }
  static std::shared_ptr<QVTCodeMapping> initWithURL(const foundation::URL& url) {
    return std::shared_ptr<QVTCodeMapping>(new QVTCodeMapping(url));
  }

  [[nodiscard]] const foundation::URL& URL() const { return url_; }
  /// Where the mapping came from; the meaning of the number is up to the caller.
  [[nodiscard]] std::int32_t source() const { return source_; }
  void setSource(std::int32_t source) { source_ = source; }
  /// Always absent: nothing in this library names a source.
  [[nodiscard]] std::optional<std::string> sourceName() const { return std::nullopt; }

 private:
  explicit QVTCodeMapping(const foundation::URL& url) : url_(url) {}

  foundation::URL url_;
  std::int32_t source_ = 0;
};
