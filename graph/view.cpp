// Views of a graph, and what is reached in them.
#include "qvlineagegraph/view.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace qvlineagegraph {

namespace {

bool isShown(NodeType type, ViewKind kind) {
  switch (kind) {
  case ViewKind::Jobs:
    return type == NodeType::Job;
  case ViewKind::Tables:
    return type == NodeType::Table;
  case ViewKind::All:
    break;
  }
  return type != NodeType::DataSource;
}

std::vector<NodeIndex> shownNodes(const Graph& graph, ViewKind kind) {
  std::vector<NodeIndex> nodes;
  for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
    if (isShown(graph.type(i), kind))
      nodes.push_back(i);
  return nodes;
}

// From each node of the shown type to those that are two edges on, by way of a node of the other type, and the edges that
// the graph has between shown nodes itself. Each pair of nodes once.
std::vector<Edge> edgesByWayOf(const Graph& graph, ViewKind kind, NodeType between) {
  std::vector<Edge> edges, row;
  const auto take = [&](NodeIndex from, NodeIndex to, bool isInferred) {
    if (isShown(graph.type(to), kind))
      row.push_back({from, to, Access::Via, isInferred});
  };
  const auto orderOf = [](const Edge& edge) { return std::tie(edge.to, edge.inferred); };
  for (NodeIndex node = 0; node < graph.nodeCount(); ++node) {
    if (!isShown(graph.type(node), kind))
      continue;
    row.clear();
    for (const Edge& first : graph.edges().out(node))
      if (first.access == Access::Via)
        take(node, first.to, first.inferred);
      else if (graph.type(first.to) == between)
        for (const Edge& second : graph.edges().out(first.to))
          take(node, second.to, first.inferred || second.inferred);
    std::ranges::sort(row, {}, orderOf);
    std::ranges::unique_copy(row, std::back_inserter(edges), {}, &Edge::to);
  }
  return edges;
}

std::vector<Edge> shownEdges(const Graph& graph, ViewKind kind) {
  switch (kind) {
  case ViewKind::Jobs:
    return edgesByWayOf(graph, kind, NodeType::Table);
  case ViewKind::Tables:
    return edgesByWayOf(graph, kind, NodeType::Job);
  case ViewKind::All:
    break;
  }
  const auto all = graph.edges().all();
  return {all.begin(), all.end()};
}

} // namespace

View::View(const Graph& graph, ViewKind kind)
    : View(graph, kind, shownNodes(graph, kind), shownEdges(graph, kind)) {}

View::View(const Graph& graph, ViewKind kind, std::vector<NodeIndex> nodes, std::vector<Edge> edges)
    : m_graph(&graph), m_kind(kind), m_nodes(std::move(nodes)), m_contains(graph.nodeCount()),
      m_edges(graph.nodeCount(), std::move(edges)) {
  for (const NodeIndex node : m_nodes)
    m_contains[node] = true;
}

View View::induced(std::span<const NodeIndex> nodes) const {
  std::vector<bool> wanted(m_contains.size());
  for (const NodeIndex node : nodes)
    wanted[node] = m_contains[node];
  std::vector<NodeIndex> kept;
  std::vector<Edge> edges;
  for (const NodeIndex node : m_nodes) {
    if (!wanted[node])
      continue;
    kept.push_back(node);
    for (const Edge& edge : out(node))
      if (wanted[edge.to])
        edges.push_back(edge);
  }
  return {*m_graph, m_kind, std::move(kept), std::move(edges)};
}

std::vector<NodeIndex> reached(const View& view, std::span<const NodeIndex> from, Direction direction,
                               Depth depth) {
  std::vector<bool> seen(view.graph().nodeCount());
  std::vector<NodeIndex> found;
  const auto visit = [&](NodeIndex node) {
    if (!seen[node] && view.contains(node)) {
      seen[node] = true;
      found.push_back(node);
    }
  };
  for (const NodeIndex node : from)
    visit(node);
  std::size_t next = 0;
  for (std::size_t steps = 0; next < found.size() && (!depth || steps < *depth); ++steps)
    for (const std::size_t end = found.size(); next < end; ++next) {
      const NodeIndex node = found[next];
      if (direction == Direction::Downstream)
        for (const Edge& edge : view.out(node))
          visit(edge.to);
      else
        for (const Edge& edge : view.in(node))
          visit(edge.from);
    }
  std::sort(found.begin(), found.end());
  return found;
}

namespace {

// Tarjan's search for strongly connected components. Its calls are rows of a stack of its own, since paths may be as long
// as the graph.
class ComponentSearch {
public:
  explicit ComponentSearch(const View& view)
      : m_view(view), m_order(view.graph().nodeCount()), m_lowest(m_order.size()), m_isOpen(m_order.size()) {}

  std::vector<std::vector<NodeIndex>> run() {
    for (const NodeIndex node : m_view.nodes())
      if (m_order[node] == 0)
        searchFrom(node);
    std::sort(m_cycles.begin(), m_cycles.end());
    return std::move(m_cycles);
  }

private:
  struct Call {
    NodeIndex node;
    std::size_t nextEdge;
  };

  void enter(NodeIndex node) {
    m_order[node] = m_lowest[node] = ++m_entered;
    m_isOpen[node] = true;
    m_open.push_back(node);
    m_calls.push_back({node, 0});
  }

  void searchFrom(NodeIndex start) {
    enter(start);
    while (!m_calls.empty()) {
      Call& call = m_calls.back();
      const auto edges = m_view.out(call.node);
      if (call.nextEdge == edges.size())
        leave();
      else
        follow(call.node, edges[call.nextEdge++].to);
    }
  }

  void follow(NodeIndex node, NodeIndex to) {
    if (m_order[to] == 0)
      enter(to);
    else if (m_isOpen[to])
      m_lowest[node] = std::min(m_lowest[node], m_order[to]);
  }

  void leave() {
    const NodeIndex node = m_calls.back().node;
    m_calls.pop_back();
    if (!m_calls.empty()) {
      auto& caller = m_lowest[m_calls.back().node];
      caller = std::min(caller, m_lowest[node]);
    }
    if (m_lowest[node] == m_order[node])
      close(node);
  }

  // The open nodes from this one on are one component.
  void close(NodeIndex node) {
    const auto first = std::find(m_open.rbegin(), m_open.rend(), node).base() - 1;
    std::vector<NodeIndex> component(first, m_open.end());
    m_open.erase(first, m_open.end());
    for (const NodeIndex closed : component)
      m_isOpen[closed] = false;
    if (component.size() == 1 && !leadsToItself(node))
      return;
    std::sort(component.begin(), component.end());
    m_cycles.push_back(std::move(component));
  }

  bool leadsToItself(NodeIndex node) const {
    const auto edges = m_view.out(node);
    return std::any_of(edges.begin(), edges.end(), [&](const Edge& edge) { return edge.to == node; });
  }

  const View& m_view;
  std::vector<std::uint32_t> m_order; // when a node was entered, from 1
  std::vector<std::uint32_t> m_lowest;
  std::vector<bool> m_isOpen;
  std::vector<NodeIndex> m_open;
  std::vector<Call> m_calls;
  std::vector<std::vector<NodeIndex>> m_cycles;
  std::uint32_t m_entered = 0;
};

} // namespace

std::vector<std::vector<NodeIndex>> cycles(const View& view) { return ComponentSearch(view).run(); }

} // namespace qvlineagegraph
