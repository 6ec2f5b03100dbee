// What looks wrong in a graph.
#include "qvlineagegraph/audit.h"

#include "qvlineagegraph/view.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <unordered_set>
#include <utility>

namespace qvlineagegraph {

namespace {

// What a kind of note is found as.
struct Noted {
  NoteKind note;
  FindingKind kind;
  bool isOfNode; // one finding tells all notes of a node
  std::string_view message;
};
constexpr std::array<Noted, 7> notedKinds{{
    {NoteKind::Failed, FindingKind::Failed, false, "{text}"},
    {NoteKind::NotUnderstood, FindingKind::NotUnderstood, false, "{text} is no step that is known"},
    {NoteKind::UnusableName, FindingKind::UnusableName, false, "{text}"},
    {NoteKind::Spelling, FindingKind::CaseOnly, true, "{node} is also written {text}"},
    {NoteKind::BareUnmatched, FindingKind::BareUnmatched, true,
     "no table {node} is known in the data source of its step"},
    {NoteKind::BareAmbiguous, FindingKind::BareAmbiguous, true, "{node} may be any of {text}"},
    {NoteKind::SameIdentity, FindingKind::SameIdentity, true, "{node} stands for several files"},
}};
consteval bool areInOrderOfNotes() {
  for (std::size_t i = 0; i < notedKinds.size(); ++i)
    if (notedKinds.at(i).note != static_cast<NoteKind>(i))
      return false;
  return true;
}
static_assert(areInOrderOfNotes(), "notes are found by their kind's number");

class Audit {
public:
  explicit Audit(const Graph& graph) : m_graph(graph) {}

  std::vector<Finding> run() {
    for (NodeIndex i = 0; i < m_graph.nodeCount(); ++i)
      if (m_graph.type(i) == NodeType::Table)
        lookAtTable(i);
    for (const auto& cycle : cycles(View(m_graph)))
      addCycle(cycle);
    addNotes();
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

  void addNotes() {
    std::map<std::pair<FindingKind, NodeIndex>, std::vector<const Note*>> named;
    for (const Note& note : m_graph.notes()) {
      const Noted& noted = notedKinds.at(static_cast<std::size_t>(note.kind));
      if (!noted.isOfNode)
        add(noted.kind, note.node == noNode ? std::vector<NodeIndex>() : std::vector{note.node}, {note.file},
            messageOf(noted, note.node, note.text));
      else if (note.node != noNode)
        named[{noted.kind, note.node}].push_back(&note);
    }
    for (const auto& [about, notes] : named)
      addNamed(about.second, notes);
  }

  // One finding a node, whatever the number of files that it was noted in.
  void addNamed(NodeIndex node, const std::vector<const Note*>& notes) {
    const Noted& noted = notedKinds.at(static_cast<std::size_t>(notes.front()->kind));
    std::vector<std::string_view> files, texts;
    if (noted.kind == FindingKind::SameIdentity)
      files.push_back(m_graph.node(node).file);
    for (const Note* note : notes) {
      files.push_back(note->file);
      texts.push_back(note->text);
    }
    std::string list;
    for (const auto& text : distinct(texts))
      list.append(list.empty() ? "" : ", ").append(text);
    add(noted.kind, {node}, distinct(files), messageOf(noted, node, list));
  }

  std::string messageOf(const Noted& noted, NodeIndex node, std::string_view text) const {
    return fmt::format(fmt::runtime(noted.message), fmt::arg("text", text),
                       fmt::arg("node", node == noNode ? std::string_view() : m_graph.name(node)));
  }

  const Graph& m_graph;
  std::vector<Finding> m_findings;
};

} // namespace

std::vector<Finding> audit(const Graph& graph) { return Audit(graph).run(); }

} // namespace qvlineagegraph
