// Writers of views, differences and findings, one a format. Each appends its text to `out`; where it can fail, `out` is
// then as it was. The saved graph is in json.h.
//
// Every name is carried as it is, with whatever quoting its format has for it.
#pragma once

#include "qvlineagegraph/audit.h"
#include "qvlineagegraph/diff.h"
#include "qvlineagegraph/result.h"
#include "qvlineagegraph/view.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace qvlineagegraph {

// A row a job with what it reads and writes, and below it the tables that no job there does; in a view of jobs or tables
// alone, a row a node with what is upstream and downstream next to it.
QVLINEAGEGRAPH_API void writeTable(const View& view, std::string& out);

struct TreeOptions {
  std::vector<NodeIndex> roots{}; // what the tree starts at; none: the nodes that nothing leads to
  bool upstream = true;
  bool downstream = true;
  Depth depth{};
};
// What lies upstream and downstream of each root, drawn with lines; a node that was drawn before on that side is marked. What the
// roots do not reach follows.
QVLINEAGEGRAPH_API void writeTree(const View& view, const TreeOptions& options, std::string& out);

// A row an edge: from_type, from_name, from_identity, to_type, to_name, to_identity, access, inferred.
QVLINEAGEGRAPH_API void writeCsv(const View& view, std::string& out);

QVLINEAGEGRAPH_API void writeDot(const View& view, std::string& out);
QVLINEAGEGRAPH_API void writeMermaid(const View& view, std::string& out);

enum class PictureFormat { Svg, Png };
inline constexpr std::size_t mostNodesInAPicture = 2000;
// Drawn by Graphviz. Refused above that number of nodes. A picture of vectors does not depend on the fonts of the machine.
// May be called from several threads, which then wait for each other.
QVLINEAGEGRAPH_API Result<void> writePicture(const View& view, PictureFormat format, std::string& out);

struct HtmlOptions {
  std::string title;
  std::vector<NodeIndex> selected; // what the page opens on; none: the overview
};
// One page in a file of its own, which holds the whole view.
QVLINEAGEGRAPH_API Result<void> writeHtml(const View& view, const HtmlOptions& options, std::string& out);

struct OpenLineageOptions {
  // From the name of a data source, in any case, to its server and, if the standard's names of tables begin with one, its
  // database: "postgres://db:5432/dwh" gives the namespace "postgres://db:5432" and the name "dwh.schema.table".
  std::map<std::string, std::string> namespaces{};
  std::string jobNamespace{}; // empty: the writer's own
  std::string eventTime{};    // RFC 3339, at most nine digits of a second's fraction; empty: now
};
// One JobEvent a job, each a line of JSON.
QVLINEAGEGRAPH_API Result<void> writeOpenLineage(const View& view, const OpenLineageOptions& options,
                                                 std::string& out);

// The differences between the graphs that they were made of.
QVLINEAGEGRAPH_API void writeDiffTable(const Diff& diff, const Graph& before, const Graph& after,
                                       std::string& out);
QVLINEAGEGRAPH_API void writeDiffJson(const Diff& diff, const Graph& before, const Graph& after,
                                      std::string& out);
QVLINEAGEGRAPH_API void writeDiffMarkdown(const Diff& diff, const Graph& before, const Graph& after,
                                          std::string& out);

QVLINEAGEGRAPH_API void writeAuditTable(std::span<const Finding> findings, const Graph& graph,
                                        std::string& out);
QVLINEAGEGRAPH_API void writeAuditJson(std::span<const Finding> findings, const Graph& graph,
                                       std::string& out);

} // namespace qvlineagegraph
