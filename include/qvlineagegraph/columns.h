// Text for people in columns.
#pragma once

#include "qvlineagegraph/export.h"

#include <string>
#include <vector>

namespace qvlineagegraph {

// Appends columns of equal width, up to a limit, with a heading, and no blanks at the end of a row. Control characters are
// shown as escapes (qvbEscapeControls() of qvxbase/qvbformat.h), so that a row stays on its line. No row has more cells
// than the heading.
QVLINEAGEGRAPH_API void writeColumns(const std::vector<std::string>& heading,
                                     const std::vector<std::vector<std::string>>& rows, std::string& out);

} // namespace qvlineagegraph
