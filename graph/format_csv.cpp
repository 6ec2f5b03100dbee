// Edges as comma-separated values (RFC 4180, with a line feed at the end of each row).
#include "qvlineagegraph/formats.h"

namespace qvlineagegraph {

namespace {

void addField(std::string_view value, std::string& out) {
  if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
    out += value;
    return;
  }
  out += '"';
  for (const char byte : value) {
    if (byte == '"')
      out += '"';
    out += byte;
  }
  out += '"';
}

void addEnd(const Node& node, std::string& out) {
  for (const auto value : {nameOf(node.type), node.name, node.identity}) {
    addField(value, out);
    out += ',';
  }
}

} // namespace

void writeCsv(const View& view, std::string& out) {
  out += "from_type,from_name,from_identity,to_type,to_name,to_identity,access,inferred\n";
  for (const Edge& edge : view.edges()) {
    addEnd(view.node(edge.from), out);
    addEnd(view.node(edge.to), out);
    out.append(nameOf(edge.access)).append(edge.inferred ? ",true\n" : ",false\n");
  }
}

} // namespace qvlineagegraph
