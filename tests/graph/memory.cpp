// The lineage graph without enough memory: with each of its allocations failing, once and from then on, an operation fails
// or throws std::bad_alloc, and answers as ever when there is memory again.
#include "qvlineagegraph/audit.h"
#include "qvlineagegraph/columns.h"
#include "qvlineagegraph/diff.h"
#include "qvlineagegraph/formats.h"
#include "qvlineagegraph/json.h"
#include "qvlineagegraph/parallel.h"
#include "qvlineagegraph/scan.h"
#include "qvlineagegraph/select.h"
#include "support/graphsketch.h"
#include "support/shortage.h"
#include "support/tempdir.h"

#include <gtest/gtest.h>

using namespace qvlineagegraph;

namespace {

// A little of everything: a cycle, an inferred edge, a name with blanks and one that many share.
Graph sketch() {
  GraphSketch graph;
  graph.step("loads/first", {"W.dw.a", "W.dw.b c"}, {"W.dw.d"});
  graph.step("loads/second", {"W.dw.d"}, {"W.dw.a", "W.dw.e"});
  graph.step("third", {"W.dw.e", "Other.x.e"}, {"W.dw.f"});
  const auto fourth = graph.job("fourth", "/jobs/fourth.djf", "ArchitectJob");
  graph.edge(graph.table("W.dw.f", "W"), fourth, Access::Read, true);
  return graph.build();
}

std::string saved(const Graph& graph) { return written(writeJson, graph); }

class GraphMemory : public testing::Test {
protected:
  const Graph m_graph = sketch();
};

} // namespace

TEST_F(GraphMemory, CostsAScanAlone) {
  const TempDir folder;
  folder.write("a/one.djf",
               "<SQLUpdateRows><DatabaseConnectionObject Name='W' DbDACType='ODBC'/>"
               "<Create TargetName='dw.customers'/><SourceTable Name='orders'/></SQLUpdateRows>");
  folder.write("a/two.djf", "<SQLUpdateRows><DatabaseConnectionObject Name='W' DbDACType='ODBC'/>"
                            "<Create TargetName='dw.Orders'/><Create TargetName='a.b.c.d'/></SQLUpdateRows>");
  folder.write("b/broken.djf", "<SQLUpdateRows>");
  folder.write("b/unknown.djf", "<Unknown/>");
  folder.write("b/saved.djf", saved(m_graph));
  folder.write("graph.json", saved(m_graph));
  ScanOptions options;
  options.threads = 1; // the one that memory is taken from
  for (const auto& paths : {std::vector<std::string>{folder.path().string(), folder / "absent"},
                            std::vector<std::string>{folder / "graph.json"}})
    expectSameAnswerAfterEveryShortage([&] {
      const auto graph = scan(paths, options);
      return graph ? saved(*graph) : graph.error().message;
    });
}

TEST_F(GraphMemory, CostsTheSearchForJobFilesAlone) {
  const TempDir folder;
  for (const char* name : {"a/b/one.djf", "a/two.xsq", "a/b/two.djf", "notes.txt"})
    folder.write(name, "");
  expectSameAnswerAfterEveryShortage([&] {
    std::string names = jobFileExtensions();
    for (const auto& file :
         findJobFiles(std::vector{folder.path().string(), folder / "absent"}, {{}, {"*.xsq"}}).files)
      names += ' ' + file.name;
    return names;
  });
}

TEST_F(GraphMemory, CostsTheReadingOfASavedGraphAlone) {
  const std::string text = saved(m_graph);
  expectSameAnswerAfterEveryShortage([&] {
    const auto graph = readJson(text);
    return graph ? saved(*graph) : graph.error().message;
  });
}

TEST_F(GraphMemory, CostsEachFormatAlone) {
  for (const auto& write : {writeTable, writeCsv, writeDot, writeMermaid, writeJson})
    for (const ViewKind kind : {ViewKind::All, ViewKind::Jobs, ViewKind::Tables})
      expectSameAnswerAfterEveryShortage([&] { return written(write, m_graph, kind); });
  expectSameAnswerAfterEveryShortage([&] {
    std::string out;
    writeTree(View(m_graph, ViewKind::All), {}, out);
    return out;
  });
}

TEST_F(GraphMemory, CostsTheFormatsThatCanFailAlone) {
  const View view(m_graph, ViewKind::All);
  const auto textOrReason = [](const Result<void>& result, const std::string& text) {
    return result.ok() ? text : result.error().message;
  };
  expectSameAnswerAfterEveryShortage([&] {
    std::string out;
    const auto result = writeHtml(view, {.title = "W", .selected = {}}, out);
    return textOrReason(result, out);
  });
  expectSameAnswerAfterEveryShortage([&] {
    std::string out;
    OpenLineageOptions options;
    options.eventTime = "2024-01-01T00:00:00Z";
    const auto result = writeOpenLineage(view, options, out);
    return textOrReason(result, out);
  });
}

TEST_F(GraphMemory, CostsASelectionAlone) {
  const View view(m_graph, ViewKind::All);
  for (const char* expression : {"+dw.d+", "2+loads/*", "type:Table", "nothing"})
    expectSameAnswerAfterEveryShortage([&] {
      Selection selection;
      selection.select = {expression};
      const auto selected = select(view, selection);
      if (!selected)
        return selected.error().message;
      std::string out;
      writeCsv(selected->view, out);
      return out;
    });
  expectSameAnswerAfterEveryShortage([&] {
    std::string names = quotedName("a+b*");
    for (const auto& name : nearestNames(view, "loads/frist"))
      names += ' ' + name;
    return names;
  });
}

TEST_F(GraphMemory, CostsADifferenceAndAnAuditAlone) {
  GraphSketch other;
  other.step("loads/first", {"W.dw.a"}, {"W.dw.D"});
  other.step("fifth", {"W.dw.d"}, {"W.dw.g"});
  const Graph after = other.build();
  expectSameAnswerAfterEveryShortage([&] {
    std::string out;
    const Diff changes = diff(m_graph, after);
    writeDiffTable(changes, m_graph, after, out);
    writeDiffJson(changes, m_graph, after, out);
    writeDiffMarkdown(changes, m_graph, after, out);
    return out;
  });
  expectSameAnswerAfterEveryShortage([&] {
    std::string out;
    const auto findings = audit(m_graph);
    writeAuditTable(findings, m_graph, out);
    writeAuditJson(findings, m_graph, out);
    return out;
  });
}

TEST_F(GraphMemory, CostsAMergeOfGraphsAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    GraphBuilder builder;
    builder.merge(m_graph);
    builder.merge(m_graph);
    return saved(builder.build());
  });
}

TEST_F(GraphMemory, CostsParallelWorkAlone) {
  expectSameAnswerAfterEveryShortage([&] {
    std::vector<std::string> done(20);
    std::string out;
    ParallelWork work;
    work.items = done.size();
    work.threads = 1;
    work.worker = [&] { return [&](std::size_t i) { done[i] = std::string(40, 'a') + std::to_string(i); }; };
    work.take = [&](std::size_t i) { out += done[i]; };
    work.release = [&](std::size_t i) { done[i].clear(); };
    workInOrder(work);
    return out;
  });
}

TEST(GraphViews, HoldEachPairOfNodesOnceHoweverManyWaysThereAre) {
  constexpr int jobs = 100, tables = 100;
  GraphSketch sketch;
  for (int job = 0; job < jobs; ++job)
    for (int table = 0; table < tables; ++table) {
      const auto between = sketch.table(std::to_string(table));
      sketch.edge(sketch.job("w" + std::to_string(job)), between, Access::Write);
      sketch.edge(between, sketch.job("r" + std::to_string(job)), Access::Read);
    }
  const Graph graph = sketch.build();
  Allocations::largest = 0;
  const View view(graph, ViewKind::Jobs);
  EXPECT_EQ(view.edges().size(), static_cast<std::size_t>(jobs * jobs));
  EXPECT_LT(Allocations::largest, sizeof(Edge) * 2 * jobs * jobs + 1);
}
