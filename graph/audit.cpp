// What looks wrong in a graph.
#include "qvlineagegraph/audit.h"

#include "qvlineagegraph/view.h"

#include <algorithm>
#include <map>
#include <unordered_set>
#include <utility>

namespace qvlineagegraph {

namespace {

class Audit {
public:
  explicit Audit(const Graph& graph) : m_graph(graph) {}

  std::vector<Finding> run() {
    for (NodeIndex i = 0; i < m_graph.nodeCount(); ++i)
      if (m_graph.type(i) == NodeType::Table)
        lookAtTable(i);
    for (const auto& cycle : cycles(View(m_graph)))
      addCycle(cycle);
    addNotedNames(NoteKind::Spelling, FindingKind::CaseOnly);
    addNotedNames(NoteKind::BareUnmatched, FindingKind::BareUnmatched);
    addNotedNames(NoteKind::BareAmbiguous, FindingKind::BareAmbiguous);
    addNotedNames(NoteKind::SameIdentity, FindingKind::SameIdentity);
    for (const Note& note : m_graph.notes())
      addNotedFile(note);
    std::stable_sort(m_findings.begin(), m_findings.end(),
                     [](const Finding& a, const Finding& b) { return a.kind < b.kind; });
    return std::move(m_findings);
  }

private:
  std::string nameOf(NodeIndex node) const { return std::string(m_graph.name(node)); }

  void add(FindingKind kind, std::vector<NodeIndex> nodes, std::vector<std::string> files,
           std::string message) {
    m_findings.push_back({kind, std::move(nodes), std::move(files), std::move(message)});
  }

  // What is not empty, each once.
  static std::vector<std::string> distinct(const std::vector<std::string_view>& texts) {
    std::unordered_set<std::string_view> seen;
    std::vector<std::string> kept;
    for (const auto text : texts)
      if (!text.empty() && seen.insert(text).second)
        kept.emplace_back(text);
    return kept;
  }

  void lookAtTable(NodeIndex table) {
    std::vector<std::string_view> writers, readers;
    for (const Edge& edge : m_graph.edges().in(table))
      if (edge.access == Access::Write)
        writers.push_back(m_graph.node(edge.from).file);
    for (const Edge& edge : m_graph.edges().out(table))
      if (edge.access == Access::Read)
        readers.push_back(m_graph.node(edge.to).file);
    const std::size_t writes = writers.size(), reads = readers.size();
    if (writes == 0 && reads > 0)
      add(FindingKind::NeverWritten, {table}, distinct(readers),
          nameOf(table) + " is read and nothing writes it");
    else if (writes > 0 && reads == 0)
      add(FindingKind::NeverRead, {table}, distinct(writers),
          nameOf(table) + " is written and nothing reads it");
    if (writes > 1)
      add(FindingKind::SeveralWriters, {table}, distinct(writers),
          nameOf(table) + " is written by " + std::to_string(writes) + " jobs");
  }

  void addCycle(const std::vector<NodeIndex>& cycle) {
    std::vector<std::string_view> files;
    std::string names;
    for (const NodeIndex node : cycle) {
      files.push_back(m_graph.node(node).file);
      names.append(names.empty() ? "" : ", ").append(m_graph.name(node));
    }
    add(FindingKind::Cycle, cycle, distinct(files), "upstream of themselves: " + names);
  }

  // One finding a node, whatever the number of files that it was noted in.
  void addNotedNames(NoteKind noted, FindingKind kind) {
    std::map<NodeIndex, std::vector<const Note*>> byNode;
    for (const Note& note : m_graph.notes())
      if (note.kind == noted && note.node != noNode)
        byNode[note.node].push_back(&note);
    for (const auto& [node, notes] : byNode) {
      std::vector<std::string_view> files, texts;
      if (kind == FindingKind::SameIdentity)
        files.push_back(m_graph.node(node).file);
      for (const Note* note : notes) {
        files.push_back(note->file);
        texts.push_back(note->text);
      }
      add(kind, {node}, distinct(files), messageOf(kind, node, distinct(texts)));
    }
  }

  std::string messageOf(FindingKind kind, NodeIndex node, const std::vector<std::string>& texts) const {
    std::string list;
    for (const auto& text : texts)
      list.append(list.empty() ? "" : ", ").append(text);
    switch (kind) {
    case FindingKind::CaseOnly:
      return nameOf(node) + " is also written " + list;
    case FindingKind::BareUnmatched:
      return "no table " + nameOf(node) + " is known in the data source of its step";
    case FindingKind::BareAmbiguous:
      return nameOf(node) + " may be any of " + list;
    default:
      return nameOf(node) + " stands for several files";
    }
  }

  void addNotedFile(const Note& note) {
    const std::vector<NodeIndex> nodes =
        note.node == noNode ? std::vector<NodeIndex>() : std::vector{note.node};
    if (note.kind == NoteKind::Failed)
      add(FindingKind::Failed, nodes, {note.file}, note.text);
    else if (note.kind == NoteKind::NotUnderstood)
      add(FindingKind::NotUnderstood, nodes, {note.file}, note.text + " is no step that is known");
    else if (note.kind == NoteKind::UnusableName)
      add(FindingKind::UnusableName, nodes, {note.file}, note.text);
  }

  const Graph& m_graph;
  std::vector<Finding> m_findings;
};

} // namespace

std::vector<Finding> audit(const Graph& graph) { return Audit(graph).run(); }

} // namespace qvlineagegraph
