// Findings: for people and for programs.
#include "qvlineagegraph/columns.h"
#include "qvlineagegraph/formats.h"

#include "jsonwriter.h"

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
  JsonWriter json(out, JsonWriter::Layout::Indented);
  json.array([&] {
    for (const Finding& finding : findings)
      json.object([&] {
        json.name("kind").text(nameOf(finding.kind));
        json.name("message").text(finding.message);
        json.name("nodes").array([&] {
          for (const NodeIndex index : finding.nodes)
            writeNodeRecord(json, graph.node(index));
        });
        json.name("files").array([&] {
          for (const auto& file : finding.files)
            json.text(file);
        });
      });
  });
  out += '\n';
}

} // namespace qvlineagegraph
