// Views as tables: a row a node with what is on either side of it.
#include "qvlineagegraph/columns.h"
#include "qvlineagegraph/formats.h"

#include "formattext.h"

#include <algorithm>

namespace qvlineagegraph {

namespace {

using Rows = std::vector<std::vector<std::string>>;

// Whether a row of neighbours has the edge.
using Wanted = bool (*)(const Edge&);
bool any(const Edge&) { return true; }
bool isReadOrWrite(const Edge& edge) { return edge.access != Access::Via; }

template<class Edges>
std::string listOf(const Graph& graph, const Edges& edges, NodeIndex Edge::*end, Wanted isWanted) {
  std::string list;
  for (const Edge& edge : edges)
    if (isWanted(edge))
      list.append(list.empty() ? "" : ", ").append(graph.name(edge.*end)).append(inferredMark(edge.inferred));
  return list;
}

std::vector<std::string> rowOf(const View& view, NodeIndex node, Wanted isWanted) {
  const Graph& graph = view.graph();
  return {std::string(graph.name(node)), listOf(graph, view.in(node), &Edge::from, isWanted),
          listOf(graph, view.out(node), &Edge::to, isWanted)};
}

void writeNodes(const View& view, const char* type, std::string& out) {
  Rows rows;
  for (const NodeIndex node : view.nodes())
    rows.push_back(rowOf(view, node, any));
  writeColumns({type, "UPSTREAM", "DOWNSTREAM"}, rows, out);
}

void writeJobs(const View& view, std::string& out) {
  Rows jobs, others;
  for (const NodeIndex node : view.nodes())
    if (view.graph().type(node) == NodeType::Job)
      jobs.push_back(rowOf(view, node, isReadOrWrite));
    else if (std::ranges::none_of(view.in(node), isReadOrWrite) &&
             std::ranges::none_of(view.out(node), isReadOrWrite)) // stands in no row of a job
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
