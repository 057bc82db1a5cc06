#pragma once

#include <string>
#include <string_view>

#include "foundation/net/URLRequest.h"

namespace foundation {

/// Assembles an HTTP response from what the transport delivers, and bounds the memory that a
/// hostile server can make it use.
class ResponseCollector {
 public:
  /// Most header bytes of one exchange, interim responses (1xx) included.
  static constexpr std::size_t kMaximumHeader = std::size_t{256} * 1024;
  /// Most bytes of a body after decompression; real services stay far below.
  static constexpr std::size_t kMaximumBody = std::size_t{16} << 20;

  enum class Refusal { none, headerTooLong, bodyTooLong, noMemory };

  /// Takes one header line with its line end. False when the exchange must not go on.
  bool addHeaderLine(std::string_view line, long statusCode);
  /// Takes decoded bytes of the body. False when the exchange must not go on.
  bool addBody(Bytes bytes);

  /// True once the headers of a final response (200 or more) are complete.
  [[nodiscard]] bool hasHeader() const { return hasHeader_; }
  [[nodiscard]] const HTTPResponse& response() const { return response_; }
  [[nodiscard]] Refusal refusal() const { return refusal_; }
  /// The bytes that have arrived since the last call.
  std::string takeBody();

 private:
  void addField(std::string_view line);

  HTTPResponse response_;
  std::string lastField_;
  std::string body_;
  std::size_t headerSize_ = 0;
  std::size_t bodySize_ = 0;
  bool hasHeader_ = false;
  Refusal refusal_ = Refusal::none;
};

}  // namespace foundation
