// What changed from one graph to another.
//
// Tables are the same by identity, jobs by name and the extension of their files, so that folders in different places can
// be compared.
#pragma once

#include "qvlineagegraph/graph.h"

#include <vector>

namespace qvlineagegraph {

enum class Change {
  Came,
  Went,
  ChangedSides, // of an edge: the job read the table and writes it now, or the other way round
};
// "came", "went", "changed sides".
QVLINEAGEGRAPH_API std::string_view nameOf(Change change) noexcept;

// A node of one graph or both: its index in the older and in the newer one, or noNode.
struct NodeChange {
  Change change = Change::Came;
  NodeIndex before = noNode;
  NodeIndex after = noNode;
};

struct EdgeChange {
  Change change = Change::Came;
  Edge before; // of the older graph; from and to are noNode for an edge that came
  Edge after;  // of the newer graph; noNode for an edge that went
};

struct DownstreamNode {
  NodeIndex before = noNode;
  NodeIndex after = noNode;
};

// Refers to both graphs by index. Each list is in the order of the newer graph, followed by what only the older one has,
// in its order.
struct Diff {
  std::vector<NodeChange> jobs;
  std::vector<NodeChange> tables;
  std::vector<EdgeChange> edges;
  // Jobs and tables that lie downstream of anything above, in the newer graph or, for what went, in the older one;
  // without those that came or went themselves.
  std::vector<DownstreamNode> downstream;

  bool empty() const noexcept { return jobs.empty() && tables.empty() && edges.empty(); }
};

QVLINEAGEGRAPH_API Diff diff(const Graph& before, const Graph& after);

} // namespace qvlineagegraph
