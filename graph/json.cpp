// The saved graph.
#include "qvlineagegraph/json.h"

#include "jsonsplit.h"
#include "jsonwriter.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

namespace qvlineagegraph {

namespace {

constexpr std::string_view formatName = "qvlineagegraph";
constexpr std::int64_t formatVersion = 1;

void appendNumber(std::string& out, std::size_t number) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  out.append(digits.data(), end);
}

void appendMember(std::string& out, std::string_view name, std::string_view text) {
  if (!text.empty()) {
    out.append(",\"").append(name).append("\":");
    appendJsonString(out, text);
  }
}

// One value a line, so that saved graphs can be compared line by line.
class GraphWriter {
public:
  GraphWriter(const View& view, std::string& out)
      : m_view(view), m_out(out), m_place(view.graph().nodeCount(), noNode) {}

  void run() {
    m_out.append("{\"format\":\"").append(formatName).append("\",\"version\":");
    appendNumber(m_out, formatVersion);
    m_out += ",\n\"nodes\":[";
    writeNodes();
    m_out += "],\n\"edges\":[";
    m_separator = "\n";
    for (const Edge& edge : m_view.edges())
      writeEdge(edge);
    m_out += "],\n\"notes\":[";
    m_separator = "\n";
    for (const Note& note : m_view.graph().notes())
      writeNote(note);
    m_out += "]}\n";
  }

private:
  void separate() { m_out += std::exchange(m_separator, ",\n"); }

  // In the order of the graph; with the tables, their data sources. The view of everything has every data source.
  void writeNodes() {
    const Graph& graph = m_view.graph();
    std::vector<bool> isWanted(graph.nodeCount());
    const bool isWhole = m_view.kind() == ViewKind::All &&
                         m_view.nodes().size() + graph.counts().dataSources == graph.nodeCount();
    for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
      isWanted[i] = isWhole || m_view.contains(i);
    for (const NodeIndex node : m_view.nodes())
      if (const NodeIndex source = graph.node(node).source; source != noNode)
        isWanted[source] = true;
    NodeIndex count = 0;
    for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
      if (isWanted[i])
        m_place[i] = count++;
    for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
      if (isWanted[i])
        writeNode(graph.node(i));
  }

  void writeNode(const Node& node) {
    separate();
    m_out.append("{\"type\":\"").append(nameOf(node.type)).append("\",\"name\":");
    appendJsonString(m_out, node.name);
    m_out += ",\"identity\":";
    appendJsonString(m_out, node.identity);
    appendMember(m_out, "file", node.file);
    appendMember(m_out, "kind", node.kind);
    if (node.source != noNode) {
      m_out += ",\"source\":";
      appendNumber(m_out, m_place[node.source]);
    }
    m_out += '}';
  }

  void writeEdge(const Edge& edge) {
    separate();
    m_out += "{\"from\":";
    appendNumber(m_out, m_place[edge.from]);
    m_out += ",\"to\":";
    appendNumber(m_out, m_place[edge.to]);
    m_out.append(",\"access\":\"").append(nameOf(edge.access));
    m_out += edge.inferred ? "\",\"inferred\":true}" : "\",\"inferred\":false}";
  }

  void writeNote(const Note& note) {
    if (note.node != noNode && m_place[note.node] == noNode)
      return;
    separate();
    m_out.append("{\"kind\":\"").append(nameOf(note.kind)).append("\"");
    if (note.node != noNode) {
      m_out += ",\"node\":";
      appendNumber(m_out, m_place[note.node]);
    }
    appendMember(m_out, "file", note.file);
    appendMember(m_out, "text", note.text);
    m_out += '}';
  }

  const View& m_view;
  std::string& m_out;
  std::vector<NodeIndex> m_place; // of each node in the document
  const char* m_separator = "\n";
};

} // namespace

void writeJson(const View& view, std::string& out) { GraphWriter(view, out).run(); }

namespace {

namespace od = simdjson::ondemand;

template<class Enum, std::size_t count>
std::optional<Enum> valueNamed(const std::array<Enum, count>& values, std::string_view name) {
  const auto found =
      std::find_if(values.begin(), values.end(), [&](Enum value) { return nameOf(value) == name; });
  return found == values.end() ? std::nullopt : std::optional(*found);
}

constexpr std::array nodeTypes{NodeType::Job, NodeType::Table, NodeType::DataSource, NodeType::File};
constexpr std::array accesses{Access::Read, Access::Write, Access::Via};
constexpr std::array noteKinds{NoteKind::Failed,      NoteKind::NotUnderstood, NoteKind::UnusableName,
                               NoteKind::Spelling,    NoteKind::BareUnmatched, NoteKind::BareAmbiguous,
                               NoteKind::SameIdentity};

// A value that is not what it should be; caught where the document is known.
struct Refusal {
  std::string reason;
};

NodeIndex indexOf(od::value value) {
  const std::uint64_t index = value.get_uint64();
  if (index >= noNode)
    throw Refusal{"a node's number is out of range"};
  return static_cast<NodeIndex>(index);
}

template<class Enum, std::size_t count>
Enum enumOf(const std::array<Enum, count>& values, std::string_view name) {
  if (const auto found = valueNamed(values, name))
    return *found;
  throw Refusal{"\"" + std::string(name) + "\" is not known here"};
}

class GraphReader {
public:
  Result<Graph> run(ByteSource source) {
    JsonSplitter splitter(std::move(source), simdjson::SIMDJSON_PADDING);
    try {
      if (!splitter.run([&](std::string_view name, std::string_view value) {
            take(name, value);
            return true;
          }))
        return malformed(splitter.failure());
      return finish();
    } catch (const simdjson::simdjson_error& error) {
      if (error.error() == simdjson::MEMALLOC)
        throw std::bad_alloc();
      return malformed(error.what());
    } catch (const Refusal& refusal) {
      return malformed(refusal.reason);
    }
  }

private:
  static Error malformed(const std::string& reason) {
    return {ErrorKind::Malformed, "no saved graph: " + reason};
  }

  // In memory of our own: the parser does not look whether it got any for its texts.
  std::string_view textOf(od::raw_json_string raw) { return m_parser.unescape(raw, m_nextText); }
  std::string_view textOf(od::value value) { return textOf(value.get_raw_json_string()); }

  void take(std::string_view name, std::string_view text) {
    if (m_texts.size() < text.size() + simdjson::SIMDJSON_PADDING)
      m_texts.resize(text.size() + simdjson::SIMDJSON_PADDING);
    m_nextText = m_texts.data();
    // The splitter keeps room after the text.
    od::document document =
        m_parser.iterate(text.data(), text.size(), text.size() + simdjson::SIMDJSON_PADDING);
    if (name == "format")
      m_isOurs = textOf(document.get_raw_json_string()) == formatName;
    else if (name == "version")
      m_version = document.get_int64();
    else if (name == "nodes")
      for (od::object node : document.get_array())
        takeNode(node);
    else if (name == "edges")
      for (od::object edge : document.get_array())
        takeEdge(edge);
    else if (name == "notes")
      for (od::object note : document.get_array())
        takeNote(note);
  }

  void takeNode(od::object object) {
    Node node;
    NodeIndex source = noNode;
    bool hasType = false;
    for (od::field field : object) {
      const auto key = field.key();
      if (key == "type") {
        node.type = enumOf(nodeTypes, textOf(field.value()));
        hasType = true;
      } else if (key == "name")
        node.name = textOf(field.value());
      else if (key == "identity")
        node.identity = textOf(field.value());
      else if (key == "file")
        node.file = textOf(field.value());
      else if (key == "kind")
        node.kind = textOf(field.value());
      else if (key == "source")
        source = indexOf(field.value());
    }
    if (!hasType)
      throw Refusal{"a node has no type"};
    m_nodes.push_back(m_builder.add(node));
    m_types.push_back(node.type);
    if (source != noNode)
      m_sources.push_back({static_cast<NodeIndex>(m_nodes.size() - 1), source});
  }

  void takeEdge(od::object object) {
    Edge edge;
    for (od::field field : object) {
      const auto key = field.key();
      if (key == "from")
        edge.from = indexOf(field.value());
      else if (key == "to")
        edge.to = indexOf(field.value());
      else if (key == "access")
        edge.access = enumOf(accesses, textOf(field.value()));
      else if (key == "inferred")
        edge.inferred = field.value().get_bool();
    }
    m_edges.push_back(edge);
  }

  void takeNote(od::object object) {
    Note note;
    for (od::field field : object) {
      const auto key = field.key();
      if (key == "kind")
        note.kind = enumOf(noteKinds, textOf(field.value()));
      else if (key == "node")
        note.node = indexOf(field.value());
      else if (key == "file")
        note.file = textOf(field.value());
      else if (key == "text")
        note.text = textOf(field.value());
    }
    m_notes.push_back(std::move(note));
  }

  NodeIndex placeOf(NodeIndex index) const {
    if (index >= m_nodes.size())
      throw Refusal{"node " + std::to_string(index) + " is named and not there"};
    return m_nodes[index];
  }

  NodeIndex endOf(NodeIndex index) const {
    const NodeIndex place = placeOf(index);
    if (m_types[index] == NodeType::DataSource)
      throw Refusal{"node " + std::to_string(index) + " is a data source and has an edge"};
    return place;
  }

  // The data source of a table: both by their numbers in the document.
  void takeSource(NodeIndex table, NodeIndex source) {
    const NodeIndex place = placeOf(source);
    if (m_types[table] != NodeType::Table || m_types[source] != NodeType::DataSource)
      throw Refusal{"node " + std::to_string(source) + " is no data source of a table"};
    m_builder.setSource(m_nodes[table], place);
  }

  // Members may come in any order: what refers to nodes waits for all of them.
  Result<Graph> finish() {
    if (!m_isOurs || !m_version)
      return malformed("its format is not \"" + std::string(formatName) + "\"");
    if (*m_version != formatVersion)
      return malformed("its version is " + std::to_string(*m_version) +
                       ", and the one that is read here is " + std::to_string(formatVersion));
    for (const auto& [table, source] : m_sources)
      takeSource(table, source);
    for (Edge& edge : m_edges) {
      edge.from = endOf(edge.from);
      edge.to = endOf(edge.to);
    }
    m_builder.addEdges(std::move(m_edges));
    for (Note& note : m_notes) {
      note.node = note.node == noNode ? noNode : placeOf(note.node);
      m_builder.addNote(std::move(note));
    }
    return m_builder.build();
  }

  od::parser m_parser;
  std::vector<std::uint8_t> m_texts; // of one member's value
  std::uint8_t* m_nextText = nullptr;
  GraphBuilder m_builder;
  bool m_isOurs = false;
  std::optional<std::int64_t> m_version;
  std::vector<NodeIndex> m_nodes; // where each of the document's is
  std::vector<NodeType> m_types;  // of each of the document's
  std::vector<std::pair<NodeIndex, NodeIndex>> m_sources;
  std::vector<Edge> m_edges;
  std::vector<Note> m_notes;
};

} // namespace

Result<Graph> readJson(std::string_view text) {
  return GraphReader().run([&](char* bytes, std::size_t count) {
    const std::size_t taken = text.copy(bytes, count);
    text.remove_prefix(taken);
    return taken;
  });
}

Result<Graph> readJsonFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::error_code ignored;
  if (!in || std::filesystem::is_directory(path, ignored))
    return Error{ErrorKind::Unreadable, path + ": cannot be opened"};
  auto graph = GraphReader().run([&](char* bytes, std::size_t count) {
    in.read(bytes, static_cast<std::streamsize>(count));
    return static_cast<std::size_t>(in.gcount());
  });
  if (in.bad())
    return Error{ErrorKind::Unreadable, path + ": cannot be read"};
  if (!graph)
    return Error{graph.error().kind, path + ": " + graph.error().message};
  return graph;
}

} // namespace qvlineagegraph
