#include "foundation/net/URLRequest.h"

#include <algorithm>

namespace foundation {

namespace {

Bytes bytesOfPiece(const RequestBody::Piece& piece) {
  if (const auto* text = std::get_if<std::string>(&piece)) return bytesOf(*text);
  return std::get<Data>(piece).bytes();
}

}  // namespace

void RequestBody::append(std::string text) {
  size_ += text.size();
  pieces_.emplace_back(std::move(text));
}

void RequestBody::append(Data data) {
  size_ += data.size();
  pieces_.emplace_back(std::move(data));
}

std::string RequestBody::joined() const {
  std::string all;
  all.reserve(static_cast<std::size_t>(size_));
  for (const Piece& piece : pieces_) all += textOf(bytesOfPiece(piece));
  return all;
}

std::size_t RequestBodyReader::read(std::span<std::byte> out) {
  std::size_t written = 0;
  while (written < out.size() && piece_ < body_->pieces().size()) {
    const Bytes left = bytesOfPiece(body_->pieces()[piece_]).subspan(offset_);
    const std::size_t count = std::min(left.size(), out.size() - written);
    std::copy_n(left.begin(), count, out.begin() + static_cast<std::ptrdiff_t>(written));
    written += count;
    offset_ += count;
    if (count == left.size()) {
      ++piece_;
      offset_ = 0;
    }
  }
  return written;
}

void RequestBodyReader::rewind() {
  piece_ = 0;
  offset_ = 0;
}

}  // namespace foundation
