// Views as flowcharts of Mermaid, which many wikis and code hosts draw.
#include "qvlineagegraph/formats.h"

#include "formattext.h"

namespace qvlineagegraph {

namespace {

struct Shape {
  std::string_view before, after;
};

Shape shapeOf(NodeType type) {
  switch (type) {
  case NodeType::Job:
    return {"(\"", "\"):::job"};
  case NodeType::Table:
    return {"[(\"", "\")]:::table"};
  default:
    return {"[\"", "\"]:::file"};
  }
}

} // namespace

void writeMermaid(const View& view, std::string& out) {
  out += "flowchart LR\n";
  for (const NodeIndex node : view.nodes()) {
    const auto [before, after] = shapeOf(view.graph().type(node));
    out.append("  n").append(std::to_string(node)).append(before);
    out.append(codedText(view.graph().name(node), "#")).append(after) += '\n';
  }
  for (const Edge& edge : view.edges()) {
    out.append("  n").append(std::to_string(edge.from)).append(edge.inferred ? " -.-> n" : " --> n");
    out.append(std::to_string(edge.to)) += '\n';
  }
  out += "  classDef job fill:#fdf1d3,stroke:#555,color:#000\n"
         "  classDef table fill:#d6e6f5,stroke:#555,color:#000\n"
         "  classDef file fill:#eee,stroke:#555,color:#000\n";
}

} // namespace qvlineagegraph
