// Columns of text.
#include "qvlineagegraph/columns.h"

#include "qvxbase/qvbformat.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace qvlineagegraph {

namespace {

// A cell that is wider moves the rest of its own row alone: padding cannot outgrow what there is to show.
constexpr std::size_t widestColumn = 100;

// The columns that a terminal shows the text in: letters of East Asia take two. No text takes more than it has bytes, and
// padding to so many tells by how much less.
std::size_t widthOf(const std::string& cell) {
  return 2 * cell.size() - fmt::formatted_size("{:{}}", cell, cell.size());
}

void writeRow(const std::vector<std::string>& row, const std::vector<std::size_t>& widths, std::string& out) {
  std::size_t gap = 0;
  for (std::size_t column = 0; column < row.size(); ++column) {
    if (!row[column].empty()) {
      out.append(gap, ' ');
      gap = 0;
    }
    out += row[column];
    const std::size_t width = widthOf(row[column]);
    gap += std::max(widths[column], width) - width + 2;
  }
  out += '\n';
}

} // namespace

void writeColumns(const std::vector<std::string>& heading, const std::vector<std::vector<std::string>>& rows,
                  std::string& out) {
  std::vector<std::vector<std::string>> cells{heading};
  for (const auto& row : rows)
    std::ranges::transform(row, std::back_inserter(cells.emplace_back()), [](const std::string& cell) {
      return std::string(qvbEscapeControls(cell).view());
    });
  std::vector<std::size_t> widths(heading.size());
  for (const auto& row : cells)
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::min(std::max(widths[column], widthOf(row[column])), widestColumn);
  for (const auto& row : cells)
    writeRow(row, widths, out);
}

} // namespace qvlineagegraph
