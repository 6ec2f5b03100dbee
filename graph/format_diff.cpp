// Differences: for people, for programs, and to be pasted into a review.
#include "qvlineagegraph/columns.h"
#include "qvlineagegraph/formats.h"

#include "formattext.h"
#include "jsonwriter.h"

namespace qvlineagegraph {

namespace {

// A node of either graph.
struct Side {
  const Graph& graph;
  NodeIndex index;

  Node node() const { return graph.node(index); }
};

class DiffReader {
public:
  DiffReader(const Diff& diff, const Graph& before, const Graph& after)
      : m_diff(diff), m_before(before), m_after(after) {}

  template<class Entry>
  Side side(const Entry& entry) const {
    return entry.after != noNode ? Side{m_after, entry.after} : Side{m_before, entry.before};
  }
  bool isOld(const EdgeChange& change) const { return change.change == Change::Went; }
  const Graph& graph(const EdgeChange& change) const { return isOld(change) ? m_before : m_after; }
  const Edge& edge(const EdgeChange& change) const { return isOld(change) ? change.before : change.after; }

  // The rows of a table: change, what, name.
  std::vector<std::vector<std::string>> rows() const {
    std::vector<std::vector<std::string>> rows;
    for (const auto* list : {&m_diff.jobs, &m_diff.tables})
      for (const NodeChange& change : *list)
        addRow(rows, nameOf(change.change), nameOf(side(change).node().type),
               std::string(side(change).node().name));
    for (const EdgeChange& change : m_diff.edges) {
      const Edge& changed = edge(change);
      addRow(rows, nameOf(change.change), nameOf(changed.access),
             std::string(graph(change).name(changed.from)) + " → " +
                 std::string(graph(change).name(changed.to)));
    }
    for (const DownstreamNode& node : m_diff.downstream)
      addRow(rows, "downstream", nameOf(side(node).node().type), std::string(side(node).node().name));
    return rows;
  }

private:
  static void addRow(std::vector<std::vector<std::string>>& rows, std::string_view change,
                     std::string_view what, std::string name) {
    rows.push_back({std::string(change), std::string(what), std::move(name)});
  }

  const Diff& m_diff;
  const Graph& m_before;
  const Graph& m_after;
};

template<class Entry>
void writeChanges(JsonWriter& json, const DiffReader& reader, const std::vector<Entry>& changes) {
  json.array([&] {
    for (const auto& change : changes)
      json.object([&] {
        json.name("change").text(nameOf(change.change));
        writeNodeMembers(json, reader.side(change).node());
      });
  });
}

void writeEdge(JsonWriter& json, const DiffReader& reader, const EdgeChange& change) {
  const Edge& edge = reader.edge(change);
  const Graph& graph = reader.graph(change);
  json.object([&] {
    json.name("change").text(nameOf(change.change));
    json.name("access").text(nameOf(edge.access));
    json.name("inferred").truth(edge.inferred);
    json.name("from");
    writeNodeRecord(json, graph.node(edge.from));
    json.name("to");
    writeNodeRecord(json, graph.node(edge.to));
  });
}

} // namespace

void writeDiffTable(const Diff& diff, const Graph& before, const Graph& after, std::string& out) {
  if (!diff.empty())
    writeColumns({"CHANGE", "WHAT", "NAME"}, DiffReader(diff, before, after).rows(), out);
}

void writeDiffJson(const Diff& diff, const Graph& before, const Graph& after, std::string& out) {
  const DiffReader reader(diff, before, after);
  JsonWriter json(out, JsonWriter::Layout::Indented);
  json.object([&] {
    json.name("jobs");
    writeChanges(json, reader, diff.jobs);
    json.name("tables");
    writeChanges(json, reader, diff.tables);
    json.name("edges").array([&] {
      for (const EdgeChange& change : diff.edges)
        writeEdge(json, reader, change);
    });
    json.name("downstream").array([&] {
      for (const DownstreamNode& node : diff.downstream)
        writeNodeRecord(json, reader.side(node).node());
    });
  });
  out += '\n';
}

void writeDiffMarkdown(const Diff& diff, const Graph& before, const Graph& after, std::string& out) {
  out += "### Lineage\n\n";
  if (diff.empty()) {
    out += "No difference.\n";
    return;
  }
  out += "| Change | What | Name |\n|---|---|---|\n";
  for (const auto& row : DiffReader(diff, before, after).rows())
    out.append("| ").append(row[0]).append(" | ").append(row[1]).append(" | ").append(
        codedText(row[2], "&#")) += " |\n";
}

} // namespace qvlineagegraph
