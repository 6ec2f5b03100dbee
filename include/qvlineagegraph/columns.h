// Text for people: columns, and names that stay on their line.
#pragma once

#include "qvlineagegraph/export.h"

#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

// Text with control characters as escapes ("\n", "\x1b").
QVLINEAGEGRAPH_API std::string visible(std::string_view bytes);

// Appends columns of equal width with a heading, each cell as visible() shows it and no blanks at the end of a row. No
// row has more cells than the heading.
QVLINEAGEGRAPH_API void writeColumns(const std::vector<std::string>& heading,
                                     const std::vector<std::vector<std::string>>& rows, std::string& out);

} // namespace qvlineagegraph
