// Views as tables: a row a node with what is on either side of it.
#include "qvlineagegraph/columns.h"
#include "qvlineagegraph/formats.h"

#include "formattext.h"

namespace qvlineagegraph {

namespace {

using Rows = std::vector<std::vector<std::string>>;

void addTo(std::string& list, const Graph& graph, NodeIndex node, const Edge& edge) {
  if (!list.empty())
    list += ", ";
  list.append(graph.name(node)).append(inferredMark(edge));
}

std::vector<std::string> rowOf(const View& view, NodeIndex node) {
  std::string before, after;
  for (const Edge& edge : view.in(node))
    addTo(before, view.graph(), edge.from, edge);
  for (const Edge& edge : view.out(node))
    addTo(after, view.graph(), edge.to, edge);
  return {std::string(view.graph().name(node)), before, after};
}

void writeNodes(const View& view, const char* type, std::string& out) {
  Rows rows;
  for (const NodeIndex node : view.nodes())
    rows.push_back(rowOf(view, node));
  writeColumns({type, "UPSTREAM", "DOWNSTREAM"}, rows, out);
}

void writeJobs(const View& view, std::string& out) {
  Rows jobs, others;
  for (const NodeIndex node : view.nodes())
    if (view.graph().type(node) == NodeType::Job)
      jobs.push_back(rowOf(view, node));
    else if (view.in(node).empty() && view.out(node).empty())
      others.push_back({std::string(view.graph().name(node))});
  if (!jobs.empty() || others.empty())
    writeColumns({"JOB", "READS", "WRITES"}, jobs, out);
  if (!jobs.empty() && !others.empty())
    out += '\n';
  if (!others.empty())
    writeColumns({"TABLE"}, others, out);
}

} // namespace

void writeTable(const View& view, std::string& out) {
  switch (view.kind()) {
  case ViewKind::All:
    return writeJobs(view, out);
  case ViewKind::Jobs:
    return writeNodes(view, "JOB", out);
  case ViewKind::Tables:
    return writeNodes(view, "TABLE", out);
  }
}

} // namespace qvlineagegraph
