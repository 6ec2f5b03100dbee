// The saved graph: JSON, format "qvlineagegraph", version 1. docs/schemas/lineage-graph.schema.json describes it.
//
// Bytes that are not UTF-8 become U+FFFD when they are written.
#pragma once

#include "qvlineagegraph/graph.h"
#include "qvlineagegraph/result.h"
#include "qvlineagegraph/view.h"

#include <string>
#include <string_view>

namespace qvlineagegraph {

// Appends the nodes and edges of the view, the data sources of its tables, and the notes.
QVLINEAGEGRAPH_API void writeJson(const View& view, std::string& out);

// Reads a saved graph. Unknown members are passed over; a newer version is an error.
QVLINEAGEGRAPH_API Result<Graph> readJson(std::string_view text);
// The same from a file; the message begins with its path.
QVLINEAGEGRAPH_API Result<Graph> readJsonFile(const std::string& path);

} // namespace qvlineagegraph
