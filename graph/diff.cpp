// Differences between two graphs.
#include "qvlineagegraph/diff.h"

#include "jobname.h"

#include "qvlineagegraph/view.h"

#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace qvlineagegraph {

namespace {

bool isReported(NodeType type) { return type == NodeType::Job || type == NodeType::Table; }

struct Key {
  NodeType type;
  std::string_view text;
  std::string_view extension; // of a job's file, which its name may have or not
  friend bool operator==(const Key& a, const Key& b) {
    return a.type == b.type && qvbEqualsIgnoreCase(a.text, b.text) &&
           qvbEqualsIgnoreCase(a.extension, b.extension);
  }
};
struct KeyHash {
  std::size_t operator()(const Key& key) const {
    return qvbHashIgnoreCase(key.text) + static_cast<std::size_t>(key.type);
  }
};

Key keyOf(const Node& node) {
  if (node.type != NodeType::Job)
    return {node.type, node.identity.empty() ? node.name : node.identity, {}};
  const auto extension = node.file.substr(withoutExtension(node.file).size());
  const auto stem = node.name.size() - std::min(node.name.size(), extension.size());
  const bool hasExtension = qvbEqualsIgnoreCase(node.name.substr(stem), extension);
  return {node.type, hasExtension ? node.name.substr(0, stem) : node.name, extension};
}

// An edge by the numbers that both graphs' nodes have in common, and the edge itself.
struct CommonEdge {
  NodeIndex from;
  NodeIndex to;
  Edge edge;
};

auto orderOf(const CommonEdge& edge) { return std::tie(edge.from, edge.to); }
bool isBefore(const CommonEdge& a, const CommonEdge& b) { return orderOf(a) < orderOf(b); }

class Comparison {
public:
  Comparison(const Graph& before, const Graph& after) : m_before(before), m_after(after) { number(); }

  Diff run() {
    compareNodes();
    compareEdges();
    findDownstream();
    return std::move(m_diff);
  }

private:
  // A node of the newer graph has its own number, one that only the older graph has the next free one.
  void number() {
    std::unordered_map<Key, NodeIndex, KeyHash> byKey;
    for (NodeIndex i = 0; i < m_after.nodeCount(); ++i)
      byKey.emplace(keyOf(m_after.node(i)), i);
    m_afterOf.resize(m_before.nodeCount(), noNode);
    m_beforeOf.resize(m_after.nodeCount(), noNode);
    auto next = static_cast<NodeIndex>(m_after.nodeCount());
    m_number.resize(m_before.nodeCount());
    for (NodeIndex i = 0; i < m_before.nodeCount(); ++i) {
      const auto same = byKey.find(keyOf(m_before.node(i)));
      if (same != byKey.end() && m_beforeOf[same->second] == noNode) {
        m_beforeOf[same->second] = i;
        m_afterOf[i] = same->second;
      }
      m_number[i] = m_afterOf[i] == noNode ? next++ : m_afterOf[i];
    }
  }

  std::vector<NodeChange>& changesOf(NodeType type) {
    return type == NodeType::Job ? m_diff.jobs : m_diff.tables;
  }

  void compareNodes() {
    for (NodeIndex i = 0; i < m_after.nodeCount(); ++i)
      if (m_beforeOf[i] == noNode && isReported(m_after.type(i)))
        changesOf(m_after.type(i)).push_back({Change::Came, noNode, i});
    for (NodeIndex i = 0; i < m_before.nodeCount(); ++i)
      if (m_afterOf[i] == noNode && isReported(m_before.type(i)))
        changesOf(m_before.type(i)).push_back({Change::Went, i, noNode});
  }

  std::vector<CommonEdge> edgesBefore() const {
    std::vector<CommonEdge> edges;
    for (const Edge& edge : m_before.edges().all())
      edges.push_back({m_number[edge.from], m_number[edge.to], edge});
    std::sort(edges.begin(), edges.end(), isBefore);
    return edges;
  }

  std::vector<CommonEdge> edgesAfter() const {
    std::vector<CommonEdge> edges;
    for (const Edge& edge : m_after.edges().all())
      edges.push_back({edge.from, edge.to, edge});
    return edges;
  }

  // Those of the first that the second has not.
  static std::vector<CommonEdge> without(const std::vector<CommonEdge>& edges,
                                         const std::vector<CommonEdge>& others) {
    std::vector<CommonEdge> left;
    std::set_difference(edges.begin(), edges.end(), others.begin(), others.end(), std::back_inserter(left),
                        isBefore);
    return left;
  }

  // The edge that runs the other way.
  static const CommonEdge* reverseIn(const std::vector<CommonEdge>& edges, const CommonEdge& edge) {
    const CommonEdge reverse{edge.to, edge.from, {}};
    const auto found = std::lower_bound(edges.begin(), edges.end(), reverse, isBefore);
    return found != edges.end() && orderOf(*found) == orderOf(reverse) ? &*found : nullptr;
  }

  void compareEdges() {
    const auto before = edgesBefore();
    const auto after = edgesAfter();
    const auto went = without(before, after);
    const auto came = without(after, before);
    for (const auto& edge : came) {
      if (const CommonEdge* other = reverseIn(went, edge))
        m_diff.edges.push_back({Change::ChangedSides, other->edge, edge.edge});
      else
        m_diff.edges.push_back({Change::Came, {}, edge.edge});
    }
    for (const auto& edge : went)
      if (!reverseIn(came, edge))
        m_diff.edges.push_back({Change::Went, edge.edge, {}});
  }

  void findDownstream() {
    std::vector<NodeIndex> startsBefore, startsAfter;
    for (const auto* changes : {&m_diff.jobs, &m_diff.tables})
      for (const NodeChange& change : *changes)
        if (change.change == Change::Came)
          startsAfter.push_back(change.after);
        else
          startsBefore.push_back(change.before);
    for (const EdgeChange& change : m_diff.edges) {
      if (change.after.to != noNode)
        startsAfter.push_back(change.after.to);
      if (change.before.to != noNode)
        startsBefore.push_back(change.before.to);
    }
    std::vector<bool> affected(m_after.nodeCount() + m_before.nodeCount());
    for (const NodeIndex node : reached(View(m_after), startsAfter, Direction::Downstream))
      affected[node] = true;
    for (const NodeIndex node : reached(View(m_before), startsBefore, Direction::Downstream))
      affected[m_number[node]] = true;
    for (NodeIndex i = 0; i < m_after.nodeCount(); ++i)
      if (affected[i] && m_beforeOf[i] != noNode && isReported(m_after.type(i)))
        m_diff.downstream.push_back({m_beforeOf[i], i});
  }

  const Graph& m_before;
  const Graph& m_after;
  std::vector<NodeIndex> m_afterOf;  // by node of the older graph
  std::vector<NodeIndex> m_beforeOf; // by node of the newer graph
  std::vector<NodeIndex> m_number;   // by node of the older graph
  Diff m_diff;
};

} // namespace

Diff diff(const Graph& before, const Graph& after) { return Comparison(before, after).run(); }

} // namespace qvlineagegraph
