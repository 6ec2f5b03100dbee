#include "support/graphsketch.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace qvlineagegraph;

namespace {

struct Sample {
  Sample() {
    GraphSketch sketch;
    sketch.step("load", {"a"}, {"b"});
    graph = sketch.build();
    findings = {
        {FindingKind::NeverWritten, {1}, {"/one.djf", "/t\"wo.djf"}, "a is read and nothing writes it"},
        {FindingKind::Failed, {}, {"/bad\n.djf"}, "/bad\n.djf: unexpected end"}};
  }
  Graph graph;
  std::vector<Finding> findings;
};

TEST(FormatAudit, HasARowAFinding) {
  const Sample sample;
  std::string out;
  writeAuditTable(sample.findings, sample.graph, out);
  EXPECT_EQ(out, "KIND           FINDING                          WHERE\n"
                 "never-written  a is read and nothing writes it  /one.djf, /t\"wo.djf\n"
                 "failed         /bad\\n.djf: unexpected end       /bad\\n.djf\n");
}

TEST(FormatAudit, HasARecordAFindingInJson) {
  const Sample sample;
  std::string out;
  writeAuditJson(sample.findings, sample.graph, out);
  EXPECT_EQ(nlohmann::json::parse(out), nlohmann::json::parse(R"([
    {"kind": "never-written", "message": "a is read and nothing writes it",
     "nodes": [{"type": "table", "name": "a", "identity": "table a"}], "files": ["/one.djf", "/t\"wo.djf"]},
    {"kind": "failed", "message": "/bad\n.djf: unexpected end", "nodes": [], "files": ["/bad\n.djf"]}])"));
}

TEST(FormatAudit, OfNoFindingsIsEmpty) {
  std::string table, json;
  writeAuditTable({}, Graph(), table);
  writeAuditJson({}, Graph(), json);
  EXPECT_EQ(table, "");
  EXPECT_EQ(json, "[]\n");
}

} // namespace
