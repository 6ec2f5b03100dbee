// The graph, and the builder that makes one node of one thing.
#include "qvlineagegraph/graph.h"

#include "nodetable.h"
#include "textpool.h"

#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <map>
#include <new>
#include <tuple>
#include <utility>

namespace qvlineagegraph {

namespace {

auto orderOf(const Edge& edge) { return std::tie(edge.from, edge.to, edge.access, edge.inferred); }
bool isBefore(const Edge& a, const Edge& b) { return orderOf(a) < orderOf(b); }
bool isSameButInferred(const Edge& a, const Edge& b) {
  return std::tie(a.from, a.to, a.access) == std::tie(b.from, b.to, b.access);
}

// Where the edges of each node begin, when they stand by this end.
std::vector<std::uint32_t> offsetsBy(NodeIndex Edge::*end, std::size_t nodeCount,
                                     const std::vector<Edge>& edges) {
  std::vector<std::uint32_t> offsets(nodeCount + 1);
  for (const Edge& edge : edges)
    ++offsets[edge.*end + 1];
  for (std::size_t i = 1; i < offsets.size(); ++i)
    offsets[i] += offsets[i - 1];
  return offsets;
}

// Sorted: put to the rows of their first nodes, and each row for itself.
std::vector<Edge> sorted(std::size_t nodeCount, const std::vector<Edge>& edges) {
  const auto starts = offsetsBy(&Edge::from, nodeCount, edges);
  auto nextOfNode = starts;
  std::vector<Edge> rows(edges.size());
  for (const Edge& edge : edges)
    rows[nextOfNode[edge.from]++] = edge;
  for (std::size_t i = 0; i < nodeCount; ++i)
    std::sort(rows.begin() + starts[i], rows.begin() + starts[i + 1], isBefore);
  return rows;
}

// Sorted, and of edges that differ in `inferred` alone the first, which is not.
std::vector<Edge> arranged(std::size_t nodeCount, std::vector<Edge> edges) {
  if (edges.size() > UINT32_MAX) // what positions are counted in
    throw std::bad_alloc();
  if (!std::is_sorted(edges.begin(), edges.end(), isBefore))
    edges = sorted(nodeCount, edges);
  edges.erase(std::unique(edges.begin(), edges.end(), isSameButInferred), edges.end());
  edges.shrink_to_fit();
  return edges;
}

std::vector<std::uint32_t> positionsByEnd(const std::vector<Edge>& edges,
                                          std::vector<std::uint32_t> nextOfNode) {
  std::vector<std::uint32_t> positions(edges.size());
  for (std::uint32_t i = 0; i < edges.size(); ++i)
    positions[nextOfNode[edges[i].to]++] = i;
  return positions;
}

} // namespace

Edges::Edges(std::size_t nodeCount, std::vector<Edge> edges)
    : m_edges(arranged(nodeCount, std::move(edges))),
      m_outOffsets(offsetsBy(&Edge::from, nodeCount, m_edges)),
      m_inOffsets(offsetsBy(&Edge::to, nodeCount, m_edges)) {
  m_incoming = positionsByEnd(m_edges, m_inOffsets);
}

Node Graph::node(NodeIndex index) const noexcept {
  const StoredNode& stored = m_nodes[index];
  const auto text = [&](StoredText at) { return m_texts->at(at.offset, at.size); };
  return {.type = stored.type,
          .name = text(stored.name),
          .identity = text(stored.identity),
          .file = text(stored.file),
          .kind = text(stored.kind),
          .source = stored.source};
}

std::string_view Graph::name(NodeIndex index) const noexcept {
  const StoredText at = m_nodes[index].name;
  return m_texts->at(at.offset, at.size);
}

Counts Graph::counts() const noexcept {
  const auto ofType = [&](NodeType type) {
    return static_cast<std::size_t>(std::count_if(m_nodes.begin(), m_nodes.end(),
                                                  [&](const StoredNode& node) { return node.type == type; }));
  };
  const auto ofAccess = [&](Access access) {
    return static_cast<std::size_t>(std::count_if(m_edges.all().begin(), m_edges.all().end(),
                                                  [&](const Edge& edge) { return edge.access == access; }));
  };
  const auto ofKind = [&](NoteKind kind) {
    return static_cast<std::size_t>(
        std::count_if(m_notes.begin(), m_notes.end(), [&](const Note& note) { return note.kind == kind; }));
  };
  return {.jobs = ofType(NodeType::Job),
          .tables = ofType(NodeType::Table),
          .dataSources = ofType(NodeType::DataSource),
          .reads = ofAccess(Access::Read),
          .writes = ofAccess(Access::Write),
          .failed = ofKind(NoteKind::Failed),
          .notUnderstood = ofKind(NoteKind::NotUnderstood)};
}

struct GraphBuilder::Parts {
  // What a node is known by; refers to texts that the pool has, or that are looked for.
  struct Key {
    NodeType type;
    std::string_view text;
  };

  static Key keyOf(const Node& node) {
    const bool hasIdentity = node.type != NodeType::DataSource && !node.identity.empty();
    return {node.type, hasIdentity ? node.identity : node.name};
  }
  Key keyOf(NodeIndex index) const {
    const auto& stored = graph.m_nodes[index];
    const bool hasIdentity = stored.type != NodeType::DataSource && stored.identity.size != 0;
    return {stored.type, textAt(hasIdentity ? stored.identity : stored.name)};
  }
  static std::size_t hashOf(const Key& key) {
    return qvbHashIgnoreCase(key.text) + static_cast<std::size_t>(key.type);
  }
  NodeIndex find(const Key& key, std::size_t hash) const {
    return nodes.find(hash, [&](NodeIndex node) {
      const Key known = keyOf(node);
      return known.type == key.type && qvbEqualsIgnoreCase(known.text, key.text);
    });
  }
  std::string_view textAt(Graph::StoredText at) const { return texts->at(at.offset, at.size); }

  Graph::StoredText keep(std::string_view text) {
    return {texts->add(text), static_cast<std::uint32_t>(text.size())};
  }
  // For texts that are few and come again and again.
  Graph::StoredText keepOnce(std::string_view text) {
    auto known = kinds.find(text);
    if (known == kinds.end())
      known = kinds.emplace(text, keep(text)).first;
    return known->second;
  }

  Graph::StoredNode stored(const Node& node) {
    Graph::StoredNode kept;
    kept.type = node.type;
    kept.source = node.source;
    kept.name = keep(node.name);
    kept.identity = keep(node.identity);
    kept.file = node.file == node.identity ? kept.identity : keep(node.file);
    kept.kind = keepOnce(node.kind);
    return kept;
  }

  void complete(Graph::StoredNode& known, const Node& node) {
    if (known.kind.size == 0 && !node.kind.empty()) {
      known.kind = keepOnce(node.kind);
      if (known.type == NodeType::DataSource && !node.identity.empty())
        known.identity = keep(node.identity);
    }
    if (known.type == NodeType::DataSource && known.identity.size == 0)
      known.identity = keep(node.identity);
    if (known.file.size == 0)
      known.file = keep(node.file);
    if (known.source == noNode)
      known.source = node.source;
  }

  Graph graph;
  std::shared_ptr<TextPool> texts = std::make_shared<TextPool>();
  std::map<std::string, Graph::StoredText, std::less<>> kinds;
  NodeTable nodes;
  std::vector<Edge> edges;
};

GraphBuilder::GraphBuilder() : m_parts(std::make_unique<Parts>()) {}
GraphBuilder::GraphBuilder(GraphBuilder&&) noexcept = default;
GraphBuilder& GraphBuilder::operator=(GraphBuilder&&) noexcept = default;
GraphBuilder::~GraphBuilder() = default;

NodeIndex GraphBuilder::add(const Node& node) {
  auto& rows = m_parts->graph.m_nodes;
  const auto key = Parts::keyOf(node);
  const std::size_t hash = Parts::hashOf(key);
  if (const NodeIndex known = m_parts->find(key, hash); known != noNode) {
    m_parts->complete(rows[known], node);
    return known;
  }
  const auto added = static_cast<NodeIndex>(rows.size());
  rows.push_back(m_parts->stored(node));
  m_parts->nodes.insert(hash, added);
  return added;
}

NodeIndex GraphBuilder::find(NodeType type, std::string_view identityOrName) const {
  const Parts::Key key{type, identityOrName};
  return m_parts->find(key, Parts::hashOf(key));
}

std::string_view GraphBuilder::nameOf(NodeIndex node) const {
  return m_parts->textAt(m_parts->graph.m_nodes[node].name);
}

std::string_view GraphBuilder::fileOf(NodeIndex node) const {
  return m_parts->textAt(m_parts->graph.m_nodes[node].file);
}

void GraphBuilder::setSource(NodeIndex table, NodeIndex source) {
  if (auto& known = m_parts->graph.m_nodes[table].source; known == noNode)
    known = source;
}

void GraphBuilder::addEdge(Edge edge) { m_parts->edges.push_back(edge); }

void GraphBuilder::addEdges(std::vector<Edge> edges) {
  if (m_parts->edges.empty())
    m_parts->edges = std::move(edges);
  else
    m_parts->edges.insert(m_parts->edges.end(), edges.begin(), edges.end());
}

void GraphBuilder::addNote(Note note) { m_parts->graph.m_notes.push_back(std::move(note)); }

void GraphBuilder::merge(const Graph& graph) {
  std::vector<NodeIndex> here(graph.nodeCount());
  for (NodeIndex i = 0; i < here.size(); ++i) {
    Node node = graph.node(i);
    node.source = noNode;
    here[i] = add(node);
  }
  const auto moved = [&](NodeIndex index) { return index == noNode ? noNode : here[index]; };
  for (NodeIndex i = 0; i < here.size(); ++i)
    setSource(here[i], moved(graph.node(i).source));
  for (const Edge& edge : graph.edges().all())
    addEdge({here[edge.from], here[edge.to], edge.access, edge.inferred});
  for (Note note : graph.notes()) {
    note.node = moved(note.node);
    addNote(std::move(note));
  }
}

Graph GraphBuilder::build() {
  Graph graph = std::move(m_parts->graph);
  std::vector<Edge> edges = std::move(m_parts->edges);
  graph.m_texts = std::move(m_parts->texts);
  m_parts = std::make_unique<Parts>();
  graph.m_nodes.shrink_to_fit();
  graph.m_notes.shrink_to_fit();
  graph.m_edges = Edges(graph.m_nodes.size(), std::move(edges));
  return graph;
}

} // namespace qvlineagegraph
