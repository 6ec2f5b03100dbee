// Graphs as texts, for tests that compare them.
#pragma once

#include "qvlineagegraph/view.h"

#include <rapidcheck.h>

#include <set>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

// "type name", or "type name in data source".
inline std::string textOf(const qvlineagegraph::Graph& graph, qvlineagegraph::NodeIndex index) {
  const auto node = graph.node(index);
  std::string text = std::string(nameOf(node.type)) + " " + std::string(node.name);
  if (node.source != qvlineagegraph::noNode)
    text += " in " + std::string(graph.name(node.source));
  return text;
}

inline Texts nodeTexts(const qvlineagegraph::Graph& graph) {
  Texts texts;
  for (qvlineagegraph::NodeIndex i = 0; i < graph.nodeCount(); ++i)
    texts.push_back(textOf(graph, i));
  return texts;
}

// "a read b", with " inferred" where it is.
inline std::string textOf(const qvlineagegraph::Graph& graph, const qvlineagegraph::Edge& edge) {
  return std::string(graph.name(edge.from)) + " " + std::string(nameOf(edge.access)) + " " +
         std::string(graph.name(edge.to)) + (edge.inferred ? " inferred" : "");
}

inline Texts edgeTexts(const qvlineagegraph::Graph& graph, std::span<const qvlineagegraph::Edge> edges) {
  Texts texts;
  for (const auto& edge : edges)
    texts.push_back(textOf(graph, edge));
  return texts;
}
inline Texts edgeTexts(const qvlineagegraph::Graph& graph) { return edgeTexts(graph, graph.edges().all()); }
inline Texts edgeTexts(const qvlineagegraph::View& view) { return edgeTexts(view.graph(), view.edges()); }

inline Texts noteTexts(const qvlineagegraph::Graph& graph) {
  Texts texts;
  for (const auto& note : graph.notes())
    texts.push_back(std::string(nameOf(note.kind)) + "|" +
                    (note.node == qvlineagegraph::noNode ? "" : std::string(graph.name(note.node))) + "|" +
                    note.file + "|" + note.text);
  return texts;
}

inline std::set<std::string> namesOf(const qvlineagegraph::Graph& graph,
                                     std::span<const qvlineagegraph::NodeIndex> nodes) {
  std::set<std::string> names;
  for (const auto node : nodes)
    names.emplace(graph.name(node));
  return names;
}
inline std::set<std::string> namesOf(const qvlineagegraph::View& view) {
  return namesOf(view.graph(), view.nodes());
}

// Everything of a graph that can be asked for.
inline Texts wholeText(const qvlineagegraph::Graph& graph) {
  Texts texts = nodeTexts(graph);
  for (qvlineagegraph::NodeIndex i = 0; i < graph.nodeCount(); ++i) {
    const auto node = graph.node(i);
    texts.push_back(std::string(node.identity) + "|" + std::string(node.file) + "|" + std::string(node.kind));
  }
  for (const auto& list : {edgeTexts(graph), noteTexts(graph)})
    texts.insert(texts.end(), list.begin(), list.end());
  return texts;
}

// A graph with few nodes of each type and any edges between jobs and tables.
inline qvlineagegraph::Graph randomGraph() {
  using namespace qvlineagegraph;
  GraphBuilder builder;
  const auto source = builder.add({.type = NodeType::DataSource, .name = "S"});
  const int jobs = *rc::gen::inRange(1, 8);
  const int tables = *rc::gen::inRange(1, 8);
  const auto job = [&](int i) {
    const std::string name = "folder/j" + std::to_string(i);
    const std::string file = "/" + name + ".djf";
    return builder.add({.type = NodeType::Job, .name = name, .identity = file, .file = file});
  };
  const auto table = [&](int i) {
    const std::string name = "S.dw.t" + std::to_string(i);
    return builder.add({.type = NodeType::Table, .name = name, .identity = "id " + name, .source = source});
  };
  const auto picks = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, jobs * tables * 2));
  for (const int pick : picks) {
    const auto j = job(pick / 2 % jobs);
    const auto t = table(pick / 2 / jobs);
    if (pick % 2 == 0)
      builder.addEdge({t, j, Access::Read, *rc::gen::arbitrary<bool>()});
    else
      builder.addEdge({j, t, Access::Write, false});
  }
  return builder.build();
}
