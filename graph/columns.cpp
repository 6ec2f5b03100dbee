// Columns of text.
#include "qvlineagegraph/columns.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace qvlineagegraph {

namespace {

// Continuation bytes of UTF-8 take no column.
std::size_t widthOf(const std::string& cell) {
  return static_cast<std::size_t>(
      std::ranges::count_if(cell, [](char byte) { return (byte & 0xC0) != 0x80; }));
}

void writeRow(const std::vector<std::string>& row, const std::vector<std::size_t>& widths, std::string& out) {
  std::size_t gap = 0;
  for (std::size_t column = 0; column < row.size(); ++column) {
    if (!row[column].empty()) {
      out.append(gap, ' ');
      gap = 0;
    }
    out += row[column];
    gap += widths[column] - widthOf(row[column]) + 2;
  }
  out += '\n';
}

} // namespace

std::string visible(std::string_view bytes) {
  std::string shown;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    if (byte == '\n')
      shown += "\\n";
    else if (byte == '\t')
      shown += "\\t";
    else if (code < 0x20 || code == 0x7F) {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(code));
      shown += escape;
    } else
      shown += byte;
  }
  return shown;
}

void writeColumns(const std::vector<std::string>& heading, const std::vector<std::vector<std::string>>& rows,
                  std::string& out) {
  std::vector<std::vector<std::string>> cells{heading};
  for (const auto& row : rows)
    std::ranges::transform(row, std::back_inserter(cells.emplace_back()), visible);
  std::vector<std::size_t> widths(heading.size());
  for (const auto& row : cells)
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], widthOf(row[column]));
  for (const auto& row : cells)
    writeRow(row, widths, out);
}

} // namespace qvlineagegraph
