#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Text.h"
#include "foundation/base/URL.h"

namespace foundation {

/// Header names compare without regard to case.
struct HeaderNameLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const {
    return lowercased(a) < lowercased(b);
  }
};
using HeaderFields = std::map<std::string, std::string, HeaderNameLess>;

/// A request body as a list of pieces that are shared, never joined: a file that is in memory
/// already is sent without another copy. The size is known, so nothing is chunked, and the body can
/// be read again from the start.
class RequestBody {
 public:
  using Piece = std::variant<std::string, Data>;

  void append(std::string text);
  void append(Data data);
  [[nodiscard]] std::uint64_t size() const { return size_; }
  [[nodiscard]] const std::vector<Piece>& pieces() const { return pieces_; }
  /// All pieces in one string; for small bodies and tests.
  [[nodiscard]] std::string joined() const;

 private:
  std::vector<Piece> pieces_;
  std::uint64_t size_ = 0;
};

/// Reads a body from its start in pieces of the caller's size; refers to the body.
class RequestBodyReader {
 public:
  explicit RequestBodyReader(const RequestBody& body) : body_(&body) {}
  /// Fills `out` as far as there are bytes; 0 at the end.
  std::size_t read(std::span<std::byte> out);
  void rewind();

 private:
  const RequestBody* body_;
  std::size_t piece_ = 0;
  std::size_t offset_ = 0;
};

/// A request as the transport takes it. Cached responses are never used.
struct URLRequest {
  /// Absent: the exchange ends at once with the platform's "unsupported URL" error.
  std::optional<URL> url;
  std::string method = "GET";
  HeaderFields headers;
  std::optional<RequestBody> body;
  /// Longest time without any byte moving in either direction, while connecting and waiting for
  /// the response too; never a limit on the whole exchange.
  std::chrono::milliseconds idleTimeout{15000};
};

/// Status and headers of a response. Repeated fields are joined with ", ".
struct HTTPResponse {
  long statusCode = 0;
  HeaderFields headers;
};

}  // namespace foundation
