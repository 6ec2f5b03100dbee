// Names that need quoting somewhere come back as they were when another program reads the format.
#include "support/graphsketch.h"
#include "support/process.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

using namespace qvlineagegraph;
using nlohmann::json;

namespace {

// Each name as that of a job and of the table that it reads.
Graph oddGraph() {
  GraphSketch sketch;
  for (const auto& name : oddNames)
    sketch.step(name, {name}, {});
  return sketch.build();
}

json readBack(const std::string& format, const std::string& content) {
  const TempDir folder;
  const auto file = folder.write("written", content);
  const auto run = runProcess({QV_SOURCE_DIR "/tests/support/readback.py", format, file}, {"PYTHONUTF8=1"});
  EXPECT_EQ(run.status, 0) << run.err;
  return json::parse(run.out);
}

json sorted(json values) {
  std::sort(values.begin(), values.end());
  return values;
}

json sortedNames(int times) {
  std::vector<std::string> names;
  for (int i = 0; i < times; ++i)
    names.insert(names.end(), oddNames.begin(), oddNames.end());
  return sorted(names);
}

json edgesBetweenEqualNames() {
  auto edges = json::array();
  for (const auto& name : oddNames)
    edges.push_back({name, name});
  return edges;
}

TEST(FormatReadback, OfCsvByPython) {
  const json read = readBack("csv", written(writeCsv, oddGraph()));
  EXPECT_EQ(read["nodes"], sortedNames(1));
  EXPECT_EQ(read["edges"], edgesBetweenEqualNames());
}

TEST(FormatReadback, OfDotByGraphviz) {
  const json read = readBack("dot", written(writeDot, oddGraph()));
  EXPECT_EQ(read["nodes"], sortedNames(2));
  EXPECT_EQ(read["edges"], edgesBetweenEqualNames());
}

TEST(FormatReadback, OfAPictureByLibxml2) {
  std::string svg;
  const Graph graph = oddGraph();
  ASSERT_TRUE(writePicture(View(graph), PictureFormat::Svg, svg).ok());
  EXPECT_EQ(readBack("svg", svg)["nodes"], sortedNames(2));
}

TEST(FormatReadback, OfMarkdownByCmark) {
  const Graph before, after = oddGraph();
  std::string markdown;
  Diff jobs = diff(before, after);
  jobs.tables.clear();
  jobs.edges.clear();
  writeDiffMarkdown(jobs, before, after, markdown);
  EXPECT_EQ(readBack("markdown", markdown)["nodes"], sortedNames(1));
}

TEST(FormatReadback, OfMermaidByItsParser) {
  const TempDir folder;
  const auto chart = folder.write("chart", written(writeMermaid, oddGraph()));
  const auto run =
      runProcess({"bash", "-c", "\"$0\" \"$1\" <\"$2\"", QV_SOURCE_DIR "/tests/support/mermaid/readback",
                  QV_SOURCE_DIR "/build/mermaid", chart});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto read = json::parse(run.out);
  EXPECT_EQ(sorted(read["nodes"]), sortedNames(2));
  EXPECT_EQ(sorted(read["edges"]), sorted(edgesBetweenEqualNames()));
}

TEST(FormatReadback, OfEventsByJq) {
  const Graph graph = oddGraph();
  std::string events;
  ASSERT_TRUE(writeOpenLineage(View(graph), {}, events).ok());
  const TempDir folder;
  const auto run = runProcess({"jq", "-s", "[.[].job.name]", folder.write("events", events)});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(json::parse(run.out), json(oddNames));
}

} // namespace
