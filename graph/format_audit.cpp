// Findings: for people and for programs.
#include "qvlineagegraph/columns.h"
#include "qvlineagegraph/formats.h"

#include "formattext.h"

namespace qvlineagegraph {

void writeAuditTable(std::span<const Finding> findings, const Graph&, std::string& out) {
  if (findings.empty())
    return;
  std::vector<std::vector<std::string>> rows;
  for (const Finding& finding : findings) {
    std::string files;
    for (const auto& file : finding.files)
      files.append(files.empty() ? "" : ", ").append(file);
    rows.push_back({std::string(nameOf(finding.kind)), finding.message, files});
  }
  writeColumns({"KIND", "FINDING", "WHERE"}, rows, out);
}

void writeAuditJson(std::span<const Finding> findings, const Graph& graph, std::string& out) {
  auto records = nlohmann::ordered_json::array();
  for (const Finding& finding : findings) {
    auto nodes = nlohmann::ordered_json::array();
    for (const NodeIndex index : finding.nodes) {
      const Node node = graph.node(index);
      nodes.push_back({{"type", nameOf(node.type)}, {"name", node.name}, {"identity", node.identity}});
    }
    records.push_back({{"kind", nameOf(finding.kind)},
                       {"message", finding.message},
                       {"nodes", nodes},
                       {"files", finding.files}});
  }
  out += jsonText(records, 2);
}

} // namespace qvlineagegraph
