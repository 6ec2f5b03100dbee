// What is shown of a graph: everything, its jobs or its tables, or a part of one of these.
#pragma once

#include "qvlineagegraph/graph.h"

#include <optional>
#include <span>
#include <vector>

namespace qvlineagegraph {

enum class ViewKind : std::uint8_t {
  All,    // jobs, tables and files, with the edges of the graph; a table tells its data source itself
  Jobs,   // job to job: the one writes a table that the other reads, or the graph says no more than that
  Tables, // table to table: a job reads the one and writes the other, or the graph says no more than that
};

// A view names nodes by their index in its graph, which must live where it is as long as the view.
class QVLINEAGEGRAPH_API View {
public:
  explicit View(const Graph& graph, ViewKind kind = ViewKind::All);

  const Graph& graph() const noexcept { return *m_graph; }
  ViewKind kind() const noexcept { return m_kind; }
  Node node(NodeIndex index) const noexcept { return m_graph->node(index); }

  // Ascending.
  std::span<const NodeIndex> nodes() const noexcept { return m_nodes; }
  // Whether the node is in the view.
  bool contains(NodeIndex index) const noexcept { return m_contains[index]; }
  // Those between its nodes.
  std::span<const Edge> edges() const noexcept { return m_edges.all(); }
  // Empty for a node that is not in the view.
  std::span<const Edge> out(NodeIndex index) const noexcept { return m_edges.out(index); }
  Edges::Incoming in(NodeIndex index) const noexcept { return m_edges.in(index); }

  // The nodes, as far as they are in this view, and the edges between them.
  View induced(std::span<const NodeIndex> nodes) const;

private:
  QVLINEAGEGRAPH_HIDDEN View(const Graph& graph, ViewKind kind, std::vector<NodeIndex> nodes,
                             std::vector<Edge> edges);

  const Graph* m_graph;
  ViewKind m_kind;
  std::vector<NodeIndex> m_nodes;
  std::vector<bool> m_contains;
  Edges m_edges;
};

enum class Direction { Upstream, Downstream };

// Counts edges of the view; none is any depth.
using Depth = std::optional<std::size_t>;

// The nodes that are reached from the given ones, themselves included, ascending.
QVLINEAGEGRAPH_API std::vector<NodeIndex> reached(const View& view, std::span<const NodeIndex> from,
                                                  Direction direction, Depth depth = {});

// Groups of nodes each of which lies upstream and downstream of every other one (a node with an edge to itself is a
// group of one). Nodes ascend within a group, groups by their first nodes.
QVLINEAGEGRAPH_API std::vector<std::vector<NodeIndex>> cycles(const View& view);

} // namespace qvlineagegraph
