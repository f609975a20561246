#include "text_table.h"

#include <algorithm>

namespace morlu::program {
namespace {

constexpr std::size_t line_width = 100;
constexpr std::size_t longest_title = 32;
constexpr std::size_t gap = 2;

std::string title_of(const TextTable::Column& column) {
  if (column.title.size() <= longest_title) return column.title;
  return "..." + column.title.substr(column.title.size() - (longest_title - 3));
}

std::size_t width_of(const TextTable::Column& column) {
  std::size_t width = title_of(column).size();
  for (const std::string& cell : column.cells) width = std::max(width, cell.size());
  return width;
}

std::string right_aligned(const std::string& text, std::size_t width) {
  return std::string(gap + width - text.size(), ' ') + text;
}

}  // namespace

void TextTable::print(std::ostream& out) const {
  std::size_t label_width = 0;
  for (const std::string& label : labels) label_width = std::max(label_width, label.size());

  for (std::size_t first = 0, end = 0; first < columns.size(); first = end) {
    std::size_t width = label_width;
    std::string header(label_width, ' ');
    std::vector<std::string> lines;
    for (const std::string& label : labels) {
      lines.push_back(label + std::string(label_width - label.size(), ' '));
    }
    while (end < columns.size()) {
      const Column& column = columns[end];
      const std::size_t column_width = width_of(column);
      if (end > first && width + gap + column_width > line_width) break;
      header += right_aligned(title_of(column), column_width);
      for (std::size_t i = 0; i < lines.size(); ++i) {
        lines[i] += right_aligned(column.cells[i], column_width);
      }
      width += gap + column_width;
      ++end;
    }
    out << (first > 0 ? "\n" : "") << header << '\n';
    for (const std::string& line : lines) out << line << '\n';
  }
}

}  // namespace morlu::program
