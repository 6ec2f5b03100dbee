// Views in the language of Graphviz, which the pictures are drawn from, too.
#include "qvlineagegraph/formats.h"

#include "formattext.h"

namespace qvlineagegraph {

namespace {

// A label's text: a backslash begins an escape there, and "&" the name of a character.
std::string quotedLabel(std::string_view name) {
  std::string quoted = "\"";
  for (const char byte : cleanText(name))
    switch (byte) {
    case '"':
    case '\\':
      (quoted += '\\') += byte;
      break;
    case '\n':
      quoted += "\\n";
      break;
    case '\r':
      quoted += "&#13;";
      break;
    case '&':
      quoted += "&amp;";
      break;
    default:
      quoted += byte;
    }
  return quoted + '"';
}

std::string_view shapeOf(NodeType type) {
  switch (type) {
  case NodeType::Job:
    return "shape=box, style=\"rounded,filled\", fillcolor=\"#fdf1d3\"";
  case NodeType::Table:
    return "shape=cylinder, style=filled, fillcolor=\"#d6e6f5\"";
  default:
    return "shape=note, style=filled, fillcolor=\"#eeeeee\"";
  }
}

std::string idOf(NodeIndex node) { return "n" + std::to_string(node); }

} // namespace

void writeDot(const View& view, std::string& out) {
  out += "digraph lineage {\n"
         "  charset=\"UTF-8\"; rankdir=LR; bgcolor=white;\n"
         "  node [fontname=\"Helvetica,Arial,sans-serif\", fontsize=11, margin=\"0.2,0.06\", "
         "color=\"#555555\"];\n"
         "  edge [color=\"#555555\", arrowsize=0.7];\n";
  for (const NodeIndex node : view.nodes()) {
    const auto type = view.graph().type(node);
    const auto label = quotedLabel(view.graph().name(node));
    out.append("  ").append(idOf(node)).append(" [class=").append(nameOf(type)).append(", label=");
    out.append(label).append(", tooltip=").append(label).append(", ").append(shapeOf(type)) += "];\n";
  }
  for (const Edge& edge : view.edges()) {
    out.append("  ").append(idOf(edge.from)).append(" -> ").append(idOf(edge.to));
    out.append(" [class=").append(nameOf(edge.access)).append(edge.inferred ? ", style=dashed];\n" : "];\n");
  }
  out += "}\n";
}

} // namespace qvlineagegraph
