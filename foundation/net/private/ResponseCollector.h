#pragma once

#include <string>
#include <string_view>

#include "foundation/net/URLRequest.h"

namespace foundation {

/// Collects an HTTP answer from the pieces that the transport hands over. Bounds what a hostile
/// server can make it hold.
class ResponseCollector {
 public:
  /// Most bytes that the head of one exchange may have, interim answers (1xx) included.
  static constexpr std::size_t kMaximumHead = std::size_t{256} * 1024;
  /// Most bytes of a body, after decompression: no answer of a service is near it.
  static constexpr std::size_t kMaximumBody = std::size_t{16} << 20;

  enum class Refusal { none, headTooLong, bodyTooLong, noMemory };

  /// Takes one line of a head with its line end. False when the exchange must not go on.
  bool addHeadLine(std::string_view line, long statusCode);
  /// Takes decoded bytes of the body. False when the exchange must not go on.
  bool addBody(Bytes bytes);

  /// True once the head of a final answer (200 or more) is complete.
  [[nodiscard]] bool hasHead() const { return hasHead_; }
  [[nodiscard]] const HTTPResponse& response() const { return response_; }
  [[nodiscard]] Refusal refusal() const { return refusal_; }
  /// The bytes that have come since the last call.
  std::string takeBody();

 private:
  void addField(std::string_view line);

  HTTPResponse response_;
  std::string lastField_;
  std::string body_;
  std::size_t headSize_ = 0;
  std::size_t bodySize_ = 0;
  bool hasHead_ = false;
  Refusal refusal_ = Refusal::none;
};

}  // namespace foundation
