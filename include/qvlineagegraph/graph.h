// The lineage graph: which job reads and writes which table.
#pragma once

#include "qvlineagegraph/export.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

// Nodes are numbered from 0 in the order in which they were first named.
using NodeIndex = std::uint32_t;
// The node that there is none of.
inline constexpr NodeIndex noNode = UINT32_MAX;

enum class NodeType : std::uint8_t { Job, Table, DataSource, File };
// A table to a job, a job to a table, and, in a view and in a graph that was saved from one, one thing to another of its
// kind by way of what is between them.
enum class Access : std::uint8_t { Read, Write, Via };

// "job", "table", "datasource", "file".
QVLINEAGEGRAPH_API std::string_view nameOf(NodeType type) noexcept;
// "read", "write", "via".
QVLINEAGEGRAPH_API std::string_view nameOf(Access access) noexcept;

// One node, as views of the graph's own text. What does not apply is empty.
struct Node {
  NodeType type = NodeType::Job;
  // What people call it. A table: its data path, "Warehouse.dw.customers" (a catalog stands before the schema; a part
  // with a dot in it is put into double quotes), or the name alone where its data source is not known. A job: its path
  // below what was scanned, without extension, "batch_jobs/load_calendar". A data source: its name.
  std::string_view name{};
  // What the library identifies it by.
  std::string_view identity{};
  // A job's path, "-" for one that was given as text.
  std::string_view file{};
  // A job's object type ("ArchitectJob"), a data source's type ("ODBC").
  std::string_view kind{};
  // The node of a table's data source, or noNode.
  NodeIndex source = noNode;

  // The last part of a job's name; the whole name of every other node.
  std::string_view label() const noexcept {
    return type == NodeType::Job ? name.substr(name.rfind('/') + 1) : name;
  }
};

// In the direction in which the data flows.
struct Edge {
  NodeIndex from = noNode;
  NodeIndex to = noNode;
  Access access = Access::Read;
  // Whether it rests on a table name alone, for which exactly one table was found, and on nothing better.
  bool inferred = false;

  friend bool operator==(const Edge&, const Edge&) = default;
};

// Edges in flat arrays, found from both of their ends.
class QVLINEAGEGRAPH_API Edges {
public:
  // The edges that lead to a node.
  class Incoming {
  public:
    class Iterator {
    public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Edge;
      using difference_type = std::ptrdiff_t;
      using pointer = const Edge*;
      using reference = const Edge&;

      Iterator() = default;
      Iterator(const Edge* edges, const std::uint32_t* position) : m_edges(edges), m_position(position) {}
      const Edge& operator*() const { return m_edges[*m_position]; }
      const Edge* operator->() const { return &**this; }
      Iterator& operator++() {
        ++m_position;
        return *this;
      }
      Iterator operator++(int) { return {m_edges, m_position++}; }
      friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
      const Edge* m_edges = nullptr;
      const std::uint32_t* m_position = nullptr;
    };

    Incoming(const Edge* edges, std::span<const std::uint32_t> positions)
        : m_edges(edges), m_positions(positions) {}
    Iterator begin() const { return {m_edges, m_positions.data()}; }
    Iterator end() const { return {m_edges, m_positions.data() + m_positions.size()}; }
    std::size_t size() const { return m_positions.size(); }
    bool empty() const { return m_positions.empty(); }

  private:
    const Edge* m_edges;
    std::span<const std::uint32_t> m_positions;
  };

  Edges() = default;
  // Both ends of every edge are below `nodeCount`; std::bad_alloc for more than 2^32 - 1 edges. Of edges that differ in
  // `inferred` alone the one that is not is kept.
  Edges(std::size_t nodeCount, std::vector<Edge> edges);

  std::size_t size() const noexcept { return m_edges.size(); }
  // By start, end and access.
  std::span<const Edge> all() const noexcept { return m_edges; }
  // Of a node below the node count; by end, and by start.
  std::span<const Edge> out(NodeIndex node) const noexcept {
    return all().subspan(m_outOffsets[node], m_outOffsets[node + 1] - m_outOffsets[node]);
  }
  Incoming in(NodeIndex node) const noexcept {
    return {m_edges.data(),
            std::span(m_incoming).subspan(m_inOffsets[node], m_inOffsets[node + 1] - m_inOffsets[node])};
  }

private:
  std::vector<Edge> m_edges;
  std::vector<std::uint32_t> m_incoming; // positions in m_edges
  std::vector<std::uint32_t> m_outOffsets{0};
  std::vector<std::uint32_t> m_inOffsets{0};
};

class TextPool;

// What was met beside nodes and edges.
enum class NoteKind : std::uint8_t {
  Failed,        // a file could not be read; text: "<file>:<line>:<column>: <reason>" or "<file>: <reason>"
  NotUnderstood, // a file is no step that is known; text: its root element
  UnusableName,  // a name in a job cannot be used; text: the element, the name and why
  Spelling,      // a name of the node that differs from its own in case alone; text: that name
  BareUnmatched, // no table of the bare name is known; node: the table that stands for it
  BareAmbiguous, // several tables have the bare name; node: the table that stands for it, text: the names of five
  SameIdentity, // a second file that has the identity of the job
};
// "failed", "not-understood", "unusable-name", "spelling", "bare-unmatched", "bare-ambiguous", "same-identity".
QVLINEAGEGRAPH_API std::string_view nameOf(NoteKind kind) noexcept;

struct Note {
  NoteKind kind = NoteKind::Failed;
  NodeIndex node = noNode; // the node that it is about, where there is one
  std::string file{};      // the file it was met in
  std::string text{};

  friend bool operator==(const Note&, const Note&) = default;
};

struct Counts {
  std::size_t jobs = 0;
  std::size_t tables = 0;
  std::size_t dataSources = 0;
  std::size_t reads = 0;
  std::size_t writes = 0;
  std::size_t failed = 0;
  std::size_t notUnderstood = 0;
};

// A graph does not change once it is built.
class QVLINEAGEGRAPH_API Graph {
public:
  Graph() = default;

  std::size_t nodeCount() const noexcept { return m_nodes.size(); }
  // Of an index below the node count.
  Node node(NodeIndex index) const noexcept;
  NodeType type(NodeIndex index) const noexcept { return m_nodes[index].type; }
  std::string_view name(NodeIndex index) const noexcept;

  // From table to job and from job to table; in a graph that was saved from a view of one kind, from one to another.
  const Edges& edges() const noexcept { return m_edges; }
  // In the order of the files.
  std::span<const Note> notes() const noexcept { return m_notes; }
  // How many there are of everything.
  Counts counts() const noexcept;

private:
  friend class GraphBuilder;

  struct StoredText {
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
  };
  struct StoredNode {
    NodeType type = NodeType::Job;
    NodeIndex source = noNode;
    StoredText name, identity, file, kind;
  };
  std::shared_ptr<const TextPool> m_texts; // where every text of the nodes lies
  std::vector<StoredNode> m_nodes;
  Edges m_edges;
  std::vector<Note> m_notes;
};

// Puts a graph together: one thing becomes one node, however often it is named.
class QVLINEAGEGRAPH_API GraphBuilder {
public:
  GraphBuilder();
  GraphBuilder(GraphBuilder&&) noexcept;
  GraphBuilder& operator=(GraphBuilder&&) noexcept;
  ~GraphBuilder();

  // The node of this type and identity, or name where the identity is empty; of a data source the name alone counts.
  // A new one takes what is given; a known one keeps what it has and takes what it lacks. A data source takes its
  // identity together with its type.
  NodeIndex add(const Node& node);
  // The node that add() would find, or noNode.
  NodeIndex find(NodeType type, std::string_view identityOrName) const;
  // Of a node that was added; good until the next change.
  std::string_view nameOf(NodeIndex node) const;
  std::string_view fileOf(NodeIndex node) const;
  // The data source of a table that has none yet.
  void setSource(NodeIndex table, NodeIndex source);
  // Between nodes that were added.
  void addEdge(Edge edge);
  void addEdges(std::vector<Edge> edges);
  // Behind the notes that there are.
  void addNote(Note note);
  // Everything of another graph.
  void merge(const Graph& graph);

  // The graph; the builder is empty afterwards.
  Graph build();

private:
  struct QVLINEAGEGRAPH_HIDDEN Parts;
  std::unique_ptr<Parts> m_parts;
};

} // namespace qvlineagegraph
