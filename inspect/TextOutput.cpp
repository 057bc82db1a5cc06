#include "inspect/TextOutput.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>

#include <sys/ioctl.h>
#include <unistd.h>

#include "foundation/base/Text.h"

namespace inspect {

using foundation::escapingControlCharacters;

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowestColumn = 8;

constexpr std::string_view kBold = "\x1b[1m";
/// In the order of `TextOutput::Tone`.
constexpr std::array<std::string_view, 4> kColours{"", "\x1b[32m", "\x1b[33m", "\x1b[31m"};

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

/// Characters, not bytes; wide and combining characters count as one.
std::size_t length(std::string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return !isContinuation(c); }));
}

/// Removes and returns the first `characters` characters.
std::string takePiece(std::string_view& text, std::size_t characters) {
  std::size_t end = 0;
  for (std::size_t taken = 0; end < text.size(); ++end) {
    if (!isContinuation(text[end]) && taken++ == characters) break;
  }
  std::string piece(text.substr(0, end));
  text.remove_prefix(end);
  return piece;
}

/// Shrinks the widest column until a row fits `total`.
std::vector<std::size_t> fittingWidths(std::vector<std::size_t> widths, std::size_t total) {
  const std::size_t gaps = widths.empty() ? 0 : (widths.size() - 1) * kGap;
  auto sum = [&] { return std::accumulate(widths.begin(), widths.end(), gaps); };
  while (sum() > total) {
    auto widest = std::ranges::max_element(widths);
    if (*widest <= kNarrowestColumn) break;
    const std::size_t excess = sum() - total;
    const std::size_t room = *widest - kNarrowestColumn;
    *widest -= std::min({excess, room, std::max<std::size_t>(*widest / 4, 1)});
  }
  return widths;
}

}  // namespace

TextStyle TextStyle::ofStandardOutput() {
  TextStyle style;
  if (!isatty(STDOUT_FILENO)) return style;
  style.columns = true;
  const char* noColour = std::getenv("NO_COLOR");
  style.colour = !noColour || !*noColour;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 40) style.width = size.ws_col;
  return style;
}

void TextOutput::heading(std::string_view text) {
  if (!text_.empty()) text_ += '\n';
  append(escapingControlCharacters(text), kBold);
}

void TextOutput::line(std::string_view text, Tone tone) {
  append(escapingControlCharacters(text), kColours[static_cast<std::size_t>(tone)]);
}

void TextOutput::append(std::string_view line, std::string_view colour) {
  const bool isColoured = style_.colour && !colour.empty();
  if (isColoured) text_ += colour;
  text_ += line;
  text_ += isColoured ? "\x1b[0m\n" : "\n";
}

void TextOutput::fields(const Fields& fields) {
  std::size_t widest = 0;
  for (const auto& [label, value] : fields) widest = std::max(widest, length(label));
  for (const auto& [label, value] : fields) {
    text_ += label + ": ";
    if (style_.columns) text_.append(widest - length(label), ' ');
    text_ += escapingControlCharacters(value.value_or("-")) + '\n';
  }
}

void TextOutput::table(const Row& headings, std::vector<Row> rows) {
  for (auto& row : rows) {
    for (auto& cell : row) cell = escapingControlCharacters(cell);
  }
  std::vector<std::size_t> widths;
  for (const auto& heading : headings) widths.push_back(length(heading));
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], length(row[i]));
  }
  widths = fittingWidths(std::move(widths), style_.width);
  if (style_.columns) tableRow(headings, widths, true);
  for (const auto& row : rows) tableRow(row, widths, false);
}

void TextOutput::tableRow(const Row& cells, const std::vector<std::size_t>& widths,
                          bool isHeading) {
  if (!style_.columns) {
    return append(foundation::joined(cells, "\t"), "");
  }
  std::vector<std::string_view> rest(cells.begin(), cells.end());
  do {
    std::string row;
    for (std::size_t i = 0; i < rest.size(); ++i) {
      const std::string piece = takePiece(rest[i], widths[i]);
      row += piece;
      if (i + 1 < rest.size()) row.append(widths[i] - length(piece) + kGap, ' ');
    }
    row.erase(row.find_last_not_of(' ') + 1);
    append(row, isHeading ? kBold : "");
  } while (std::ranges::any_of(rest, [](std::string_view text) { return !text.empty(); }));
}

}  // namespace inspect
