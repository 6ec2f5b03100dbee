#include "support/graphsketch.h"

#include <gtest/gtest.h>

using namespace qvlineagegraph;

namespace {

Graph sample() {
  GraphSketch sketch;
  sketch.step("load", {"a", "b"}, {"c"});
  const auto report = sketch.step("report", {"c"}, {});
  sketch.edge(sketch.table("d"), report, Access::Read, true);
  return sketch.build();
}

TEST(FormatTable, HasARowAJobWithWhatItReadsAndWrites) {
  EXPECT_EQ(written(writeTable, sample()), "JOB     READS            WRITES\n"
                                           "load    a, b             c\n"
                                           "report  c, d (inferred)\n");
}

TEST(FormatTable, HasARowATableWithItsNeighboursInAViewOfTables) {
  EXPECT_EQ(written(writeTable, sample(), ViewKind::Tables), "TABLE  UPSTREAM  DOWNSTREAM\n"
                                                             "a                c\n"
                                                             "b                c\n"
                                                             "c      a, b\n"
                                                             "d\n");
}

TEST(FormatTable, HasARowAJobWithItsNeighboursInAViewOfJobs) {
  EXPECT_EQ(written(writeTable, sample(), ViewKind::Jobs), "JOB     UPSTREAM  DOWNSTREAM\n"
                                                           "load              report\n"
                                                           "report  load\n");
}

TEST(FormatTable, NamesTablesOfNoJobThatIsShown) {
  const Graph graph = sample();
  const View view(graph);
  std::string alone, both;
  const std::vector<NodeIndex> tables{1, 2};
  writeTable(view.induced(tables), alone);
  EXPECT_EQ(alone, "TABLE\na\nb\n");
  const std::vector<NodeIndex> withJob{0, 1, 3, 5};
  writeTable(view.induced(withJob), both);
  EXPECT_EQ(both, "JOB   READS  WRITES\nload  a      c\n\nTABLE\nd\n");
}

TEST(FormatTable, OfNothingIsItsHeading) { EXPECT_EQ(written(writeTable, Graph()), "JOB  READS  WRITES\n"); }

TEST(FormatTable, NamesTablesThatLeadToOthersByWayOfJobsThatAreNotKnown) {
  GraphSketch sketch;
  const auto a = sketch.table("a");
  sketch.edge(a, sketch.table("b"), Access::Via);
  const Graph tables = sketch.build();
  EXPECT_EQ(written(writeTable, tables), "TABLE\na\nb\n");
  EXPECT_EQ(written(writeTable, tables, ViewKind::Tables), "TABLE  UPSTREAM  DOWNSTREAM\n"
                                                           "a                b\n"
                                                           "b      a\n");
  const auto first = sketch.job("first");
  sketch.edge(first, sketch.job("second"), Access::Via);
  EXPECT_EQ(written(writeTable, sketch.build()), "JOB     READS  WRITES\nfirst\nsecond\n");
}

} // namespace
