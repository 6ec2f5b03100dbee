#include "support/graphsketch.h"

#include <gmock/gmock.h>

using namespace qvlineagegraph;
using testing::HasSubstr;

namespace {

TEST(FormatDot, TellsJobsTablesAndInferredEdgesApart) {
  GraphSketch sketch;
  const auto load = sketch.step("load", {"a"}, {});
  sketch.edge(sketch.table("b"), load, Access::Read, true);
  const std::string dot = written(writeDot, sketch.build());
  EXPECT_THAT(dot, HasSubstr("n0 [class=job, label=\"load\", tooltip=\"load\", shape=box"));
  EXPECT_THAT(dot, HasSubstr("n1 [class=table, label=\"a\", tooltip=\"a\", shape=cylinder"));
  EXPECT_THAT(dot, HasSubstr("  n1 -> n0 [class=read];\n  n2 -> n0 [class=read, style=dashed];\n"));
}

TEST(FormatDot, QuotesWhatALabelTakesForItsOwn) {
  GraphSketch sketch;
  sketch.job("a\"b\\c\nd\re&f");
  EXPECT_THAT(written(writeDot, sketch.build()), HasSubstr(R"(label="a\"b\\c\nd&#13;e&amp;f",)"));
}

TEST(FormatDot, ShowsAFileAsANote) {
  GraphBuilder builder;
  builder.add({.type = NodeType::File, .name = "in.txt"});
  EXPECT_THAT(written(writeDot, builder.build()),
              HasSubstr("n0 [class=file, label=\"in.txt\", tooltip=\"in.txt\", shape=note"));
}

TEST(FormatDot, SaysOtherwiseWhatNoTextIs) {
  GraphSketch sketch;
  sketch.job(std::string("a\xff\0\x01\x7f\xef\xbf\xbf", 8));
  EXPECT_THAT(written(writeDot, sketch.build()), HasSubstr("label=\"a\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\""));
}

} // namespace
