#include "support/graphsketch.h"

#include <gmock/gmock.h>

using namespace qvlineagegraph;

namespace {

TEST(FormatMermaid, TellsJobsTablesAndInferredEdgesApart) {
  GraphSketch sketch;
  const auto load = sketch.step("batch_jobs/load", {"Shop.dbo.a-b"}, {});
  sketch.edge(sketch.table("_b_ [c]"), load, Access::Read, true);
  const std::string chart = written(writeMermaid, sketch.build());
  EXPECT_EQ(chart.substr(0, chart.find("  classDef")), "flowchart LR\n"
                                                       "  n0(\"batch_jobs/load\"):::job\n"
                                                       "  n1[(\"Shop.dbo.a-b\")]:::table\n"
                                                       "  n2[(\"#95;b#95; #91;c#93;\")]:::table\n"
                                                       "  n1 --> n0\n"
                                                       "  n2 -.-> n0\n");
}

TEST(FormatMermaid, ShowsAFileByItself) {
  GraphBuilder builder;
  builder.add({.type = NodeType::File, .name = "in.txt"});
  EXPECT_THAT(written(writeMermaid, builder.build()), testing::HasSubstr("  n0[\"in.txt\"]:::file\n"));
}

} // namespace
