#include "support/graphsketch.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using namespace qvlineagegraph;

namespace {

using WriteDiff = void (*)(const Diff&, const Graph&, const Graph&, std::string&);

std::string changes(WriteDiff write) {
  GraphSketch before, after;
  before.step("load", {"a", "s"}, {"b"});
  before.step("old", {"a"}, {});
  before.step("report", {"b"}, {"r"});
  after.step("load", {"a"}, {"b", "s"});
  after.step("ne|w", {"a"}, {});
  after.step("report", {"b"}, {"r"});
  const Graph old = before.build(), made = after.build();
  std::string out;
  write(diff(old, made), old, made, out);
  return out;
}

TEST(FormatDiff, HasARowAChange) {
  EXPECT_EQ(changes(writeDiffTable), "CHANGE         WHAT   NAME\n"
                                     "came           job    ne|w\n"
                                     "went           job    old\n"
                                     "changed sides  write  load → s\n"
                                     "came           read   a → ne|w\n"
                                     "went           read   a → old\n"
                                     "downstream     job    load\n"
                                     "downstream     table  b\n"
                                     "downstream     table  s\n"
                                     "downstream     job    report\n"
                                     "downstream     table  r\n");
}

TEST(FormatDiff, HasTheSameRowsInMarkdown) {
  EXPECT_EQ(changes(writeDiffMarkdown), "### Lineage\n\n"
                                        "| Change | What | Name |\n|---|---|---|\n"
                                        "| came | job | ne&#124;w |\n"
                                        "| went | job | old |\n"
                                        "| changed sides | write | load → s |\n"
                                        "| came | read | a → ne&#124;w |\n"
                                        "| went | read | a → old |\n"
                                        "| downstream | job | load |\n"
                                        "| downstream | table | b |\n"
                                        "| downstream | table | s |\n"
                                        "| downstream | job | report |\n"
                                        "| downstream | table | r |\n");
}

TEST(FormatDiff, HasEachChangeWithItsEndsInJson) {
  const auto record = nlohmann::json::parse(changes(writeDiffJson));
  EXPECT_EQ(
      record["jobs"][0],
      nlohmann::json({{"change", "came"}, {"type", "job"}, {"name", "ne|w"}, {"identity", "job ne|w"}}));
  EXPECT_EQ(record["tables"], nlohmann::json::array());
  const auto& turned = record["edges"][0];
  EXPECT_EQ(turned["change"], "changed sides");
  EXPECT_EQ(turned["access"], "write");
  EXPECT_EQ(turned["from"]["name"], "load");
  EXPECT_EQ(turned["to"], nlohmann::json({{"type", "table"}, {"name", "s"}, {"identity", "table s"}}));
}

TEST(FormatDiff, OfTheSameIsEmpty) {
  GraphSketch sketch;
  sketch.step("load", {"a"}, {"b"});
  const Graph graph = sketch.build();
  const Diff none = diff(graph, graph);
  std::string table, markdown, json;
  writeDiffTable(none, graph, graph, table);
  writeDiffMarkdown(none, graph, graph, markdown);
  writeDiffJson(none, graph, graph, json);
  EXPECT_EQ(table, "");
  EXPECT_EQ(markdown, "### Lineage\n\nNo difference.\n");
  EXPECT_EQ(nlohmann::json::parse(json),
            nlohmann::json::parse(R"({"jobs":[],"tables":[],"edges":[],"downstream":[]})"));
}

} // namespace
