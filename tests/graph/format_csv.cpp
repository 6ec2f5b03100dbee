#include "support/graphsketch.h"

#include <gtest/gtest.h>

using namespace qvlineagegraph;

namespace {

TEST(FormatCsv, HasARowAnEdgeAsTheDataFlows) {
  GraphSketch sketch;
  const auto load = sketch.step("load", {"a"}, {"b, c"});
  sketch.edge(sketch.table("d"), load, Access::Read, true);
  EXPECT_EQ(written(writeCsv, sketch.build()),
            "from_type,from_name,from_identity,to_type,to_name,to_identity,access,inferred\n"
            "job,load,job load,table,\"b, c\",\"table b, c\",write,false\n"
            "table,a,table a,job,load,job load,read,false\n"
            "table,d,table d,job,load,job load,read,true\n");
}

TEST(FormatCsv, SaysViaBetweenTables) {
  GraphSketch sketch;
  sketch.step("load", {"a"}, {"b"});
  EXPECT_EQ(written(writeCsv, sketch.build(), ViewKind::Tables),
            "from_type,from_name,from_identity,to_type,to_name,to_identity,access,inferred\n"
            "table,a,table a,table,b,table b,via,false\n");
}

} // namespace
