// Graphs for tests, put together by names.
#pragma once

#include "qvlineagegraph/formats.h"

#include <string>
#include <vector>

class GraphSketch {
public:
  using NodeIndex = qvlineagegraph::NodeIndex;

  NodeIndex job(const std::string& name, const std::string& file = "", const std::string& kind = "") {
    return m_builder.add({.type = qvlineagegraph::NodeType::Job,
                          .name = name,
                          .identity = "job " + name,
                          .file = file,
                          .kind = kind});
  }
  NodeIndex table(const std::string& name, const std::string& source = "") {
    const auto at = source.empty()
                        ? qvlineagegraph::noNode
                        : m_builder.add({.type = qvlineagegraph::NodeType::DataSource, .name = source});
    const std::string identity = "table " + name;
    return m_builder.add(
        {.type = qvlineagegraph::NodeType::Table, .name = name, .identity = identity, .source = at});
  }
  // A job with what it reads and writes.
  NodeIndex step(const std::string& name, const std::vector<std::string>& reads,
                 const std::vector<std::string>& writes) {
    const auto made = job(name);
    for (const auto& read : reads)
      edge(table(read), made, qvlineagegraph::Access::Read);
    for (const auto& written : writes)
      edge(made, table(written), qvlineagegraph::Access::Write);
    return made;
  }
  void edge(NodeIndex from, NodeIndex to, qvlineagegraph::Access access, bool inferred = false) {
    m_builder.addEdge({from, to, access, inferred});
  }
  qvlineagegraph::Graph build() { return m_builder.build(); }

private:
  qvlineagegraph::GraphBuilder m_builder;
};

// What a writer without options writes of everything in the graph, or of its jobs or tables.
inline std::string written(void (*write)(const qvlineagegraph::View&, std::string&),
                           const qvlineagegraph::Graph& graph,
                           qvlineagegraph::ViewKind kind = qvlineagegraph::ViewKind::All) {
  std::string out;
  write(qvlineagegraph::View(graph, kind), out);
  return out;
}

// Names that need quoting somewhere: blanks, quotes, line feeds, markup, brackets, letters of other languages.
inline const std::vector<std::string> oddNames{"a b",
                                               "  edges  ",
                                               "quote\"d 'single' \"\"",
                                               "line\nfeed\nand more",
                                               "Größe 名前 😀",
                                               "100%20 & <x> ]]> &lt; &amp;amp; &#65;",
                                               "[a,b] {c} (d) <e>",
                                               "-dash",
                                               "tab\there",
                                               "back\\slash\\n \\N \\l\\",
                                               "\\",
                                               "ends in \\\"",
                                               "hash#query?a=b;c #35; #quot;",
                                               "<b>bold</b><script>alert(1)</script>",
                                               "1. item",
                                               "*stars* _lines_ `ticks` ~~gone~~ | bar",
                                               "%%{init: {}}%%",
                                               "end",
                                               "graph subgraph click style",
                                               "a,b\"c",
                                               "=1+1",
                                               "</svg><!-- -- -->"};
