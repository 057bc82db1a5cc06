#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace inspect {

/// The layout of text, and how much of it. Without a terminal there are neither colours nor
/// columns, so that other programs can parse the lines.
struct TextStyle {
  bool columns = false;
  bool colour = false;
  std::size_t width = 80;
  /// Lists dylibs, devices and certificates instead of counting them.
  bool detailed = false;

  /// With the terminal's width, and without colour if NO_COLOR is set.
  static TextStyle ofStandardOutput();
};

/// Builds a text report. The input may be untrusted: control characters are escaped
/// (`foundation::escapingControlCharacters`).
class TextOutput {
 public:
  using Fields = std::vector<std::pair<std::string, std::optional<std::string>>>;
  using Row = std::vector<std::string>;
  enum class Tone { plain, good, warning, bad };

  explicit TextOutput(TextStyle style) : style_(style) {}

  void heading(std::string_view text);
  void line(std::string_view text, Tone tone = Tone::plain);
  /// "label: value" lines, aligned on a terminal. A missing value is shown as "-".
  void fields(const Fields& fields);
  /// Rows of equal length. On a terminal, columns under headings, with wide cells wrapped;
  /// elsewhere tab-separated rows without headings.
  void table(const Row& headings, std::vector<Row> rows);

  [[nodiscard]] const std::string& text() const { return text_; }
  [[nodiscard]] bool isDetailed() const { return style_.detailed; }

 private:
  void append(std::string_view line, std::string_view colour);
  void tableRow(const Row& cells, const std::vector<std::size_t>& widths, bool isHeading);
  std::string text_;
  TextStyle style_;
};

}  // namespace inspect
