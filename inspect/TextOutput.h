#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace inspect {

/// How text is laid out. Off a terminal there is neither colour nor any column layout, so that
/// other programs can read the lines.
struct TextStyle {
  bool columns = false;
  bool colour = false;
  std::size_t width = 80;

  /// What standard output asks for: a terminal's own width, no colour with NO_COLOR set.
  static TextStyle ofStandardOutput();
};

/// Text for people, collected and handed over at the end. What is put into it may come from foreign
/// files: control characters are escaped (`foundation::escapingControlCharacters`).
class TextOutput {
 public:
  using Row = std::vector<std::string>;
  enum class Tone { plain, good, warning, bad };

  explicit TextOutput(TextStyle style) : style_(style) {}

  void heading(std::string_view text);
  void line(std::string_view text, Tone tone = Tone::plain);
  /// "label: value" lines; on a terminal the values stand below each other. A missing value is
  /// shown as "-".
  void fields(const std::vector<std::pair<std::string, std::optional<std::string>>>& pairs);
  /// Rows of equal length. On a terminal: columns under a heading line, cells that are too wide
  /// broken over several lines; elsewhere tab-separated rows without headings.
  void table(const Row& headings, std::vector<Row> rows);

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  void tableRow(const Row& cells, const std::vector<std::size_t>& widths, bool isHeading);
  std::string text_;
  TextStyle style_;
};

}  // namespace inspect
