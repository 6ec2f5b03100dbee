#include "support/graphsketch.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sstream>

using namespace qvlineagegraph;
using nlohmann::json;
using testing::HasSubstr;

namespace {

std::vector<json> events(const Graph& graph, OpenLineageOptions options = {}) {
  options.eventTime = "2026-11-21T10:15:30Z";
  std::string out;
  const auto done = writeOpenLineage(View(graph), options, out);
  EXPECT_TRUE(done.ok()) << done.error().message;
  std::vector<json> all;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);)
    all.push_back(json::parse(line));
  return all;
}

TEST(FormatOpenLineage, TellsOfEachJobWhatItReadsAndWrites) {
  GraphSketch sketch;
  const auto load = sketch.job("batch_jobs/load", "/srv/a b.djf", "ProcessJob");
  sketch.edge(sketch.table("Shop.dbo.orders", "Shop"), load, Access::Read);
  sketch.edge(load, sketch.table("Ware house.dw.orders", "Ware house"), Access::Write);
  sketch.job("empty");
  const auto all = events(sketch.build());
  ASSERT_EQ(all.size(), 2U);
  const auto& event = all[0];
  EXPECT_EQ(event["eventTime"], "2026-11-21T10:15:30Z");
  EXPECT_EQ(event["schemaURL"], "https://openlineage.io/spec/2-0-2/OpenLineage.json#/$defs/JobEvent");
  EXPECT_EQ(event["job"]["namespace"], "qvrepos");
  EXPECT_EQ(event["job"]["name"], "batch_jobs/load");
  EXPECT_EQ(event["job"]["facets"]["jobType"]["jobType"], "ProcessJob");
  EXPECT_EQ(event["job"]["facets"]["sourceCodeLocation"]["url"], "file:///srv/a%20b.djf");
  ASSERT_EQ(event["inputs"].size(), 1U);
  EXPECT_EQ(event["inputs"][0]["namespace"], "qvd:///Shop");
  EXPECT_EQ(event["inputs"][0]["name"], "dbo.orders");
  EXPECT_EQ(event["inputs"][0]["facets"]["dataSource"]["name"], "Shop");
  ASSERT_EQ(event["outputs"].size(), 1U);
  EXPECT_EQ(event["outputs"][0]["namespace"], "qvd:///Ware%20house");
  EXPECT_EQ(event["outputs"][0]["facets"]["dataSource"]["uri"], "qvd:///Ware%20house");
  EXPECT_EQ(all[1]["inputs"], json::array());
  EXPECT_EQ(all[1]["job"]["facets"].count("sourceCodeLocation"), 0U);
}

struct Naming {
  std::string table, mapping, space, name;
};

class DatasetNames : public testing::TestWithParam<Naming> {};

TEST_P(DatasetNames, FollowTheStandardsNaming) {
  const auto& [table, mapping, space, name] = GetParam();
  GraphSketch sketch;
  sketch.edge(sketch.table(table, "W"), sketch.job("load"), Access::Read);
  OpenLineageOptions options;
  if (!mapping.empty())
    options.namespaces["W"] = mapping;
  const auto event = events(sketch.build(), options).at(0);
  EXPECT_EQ(event["inputs"][0]["namespace"], space);
  EXPECT_EQ(event["inputs"][0]["name"], name);
  EXPECT_EQ(event["inputs"][0]["facets"]["dataSource"]["uri"], mapping.empty() ? space : mapping);
}

INSTANTIATE_TEST_SUITE_P(
    All, DatasetNames,
    testing::Values(
        Naming{"W.dw.orders", "postgres://db:5432/dwh", "postgres://db:5432", "dwh.dw.orders"},
        Naming{"W.dw.orders", "postgres://db:5432", "postgres://db:5432", "dw.orders"},
        Naming{"W.dw.orders", "postgres://db:5432/", "postgres://db:5432", "dw.orders"},
        Naming{"W.dw.orders", "postgres://db:5432/dwh/", "postgres://db:5432", "dwh.dw.orders"},
        Naming{"W.other.dw.orders", "postgres://db:5432/dwh", "postgres://db:5432", "other.dw.orders"},
        Naming{"W.orders", "postgres://db:5432/dwh", "postgres://db:5432", "dwh.orders"},
        Naming{"W.shop.orders", "mysql://db:3306/dwh", "mysql://db:3306", "shop.orders"},
        Naming{"W.orders", "mysql://db:3306/shop", "mysql://db:3306", "shop.orders"},
        Naming{"W.dw.orders", "snowflake://org-account/DWH", "snowflake://org-account", "DWH.dw.orders"},
        Naming{"W.project.set.orders", "bigquery", "bigquery", "project.set.orders"},
        Naming{"W.dw.\"a.b\"\"c\"", "postgres://db:5432/dwh", "postgres://db:5432", "dwh.dw.a.b\"c"},
        Naming{"W.shop..orders", "mysql://db:3306/dwh", "mysql://db:3306", "shop.orders"},
        Naming{"W.other..orders", "postgres://db:5432/dwh", "postgres://db:5432", "other..orders"},
        Naming{"W.dw.orders", "", "qvd:///W", "dw.orders"}, Naming{"W", "", "qvd:///W", "W"}));

TEST(FormatOpenLineage, PutsATableOfNoKnownDataSourceByItself) {
  GraphSketch sketch;
  sketch.edge(sketch.table("holidays"), sketch.job("load"), Access::Read);
  const auto input = events(sketch.build()).at(0)["inputs"][0];
  EXPECT_EQ(input, json({{"namespace", "qvd:///"}, {"name", "holidays"}}));
}

TEST(FormatOpenLineage, NamesAFileByItsPathOrElseItsName) {
  GraphBuilder builder;
  const auto load = builder.add({.type = NodeType::Job, .name = "load"});
  const auto known = builder.add({.type = NodeType::File, .name = "in.txt", .file = "/data/in.txt"});
  const auto unknown = builder.add({.type = NodeType::File, .name = "out.txt"});
  builder.addEdge({known, load, Access::Read, false});
  builder.addEdge({load, unknown, Access::Write, false});
  const auto event = events(builder.build()).at(0);
  EXPECT_EQ(event["inputs"][0], json({{"namespace", "file"}, {"name", "/data/in.txt"}}));
  EXPECT_EQ(event["outputs"][0], json({{"namespace", "file"}, {"name", "out.txt"}}));
}

TEST(FormatOpenLineage, MarksInferredEdges) {
  GraphSketch sketch;
  const auto load = sketch.job("load");
  sketch.edge(sketch.table("a"), load, Access::Read, true);
  sketch.edge(load, sketch.table("b"), Access::Write, true);
  const auto event = events(sketch.build()).at(0);
  EXPECT_EQ(event["inputs"][0]["inputFacets"]["qvrepos_edge"]["inferred"], true);
  EXPECT_EQ(event["outputs"][0]["outputFacets"]["qvrepos_edge"]["inferred"], true);
}

TEST(FormatOpenLineage, TakesTheNamespaceOfTheJobs) {
  GraphSketch sketch;
  sketch.job("load");
  OpenLineageOptions options;
  options.jobNamespace = "prod";
  EXPECT_EQ(events(sketch.build(), options).at(0)["job"]["namespace"], "prod");
}

TEST(FormatOpenLineage, RefusesWhatIsNoTimeAndAViewOfOneKind) {
  const Graph graph;
  std::string out;
  for (const std::string& time : std::vector<std::string>{
           "yesterday", "2026-11-21", "2026-11-21T10:15:30", "2026-13-21T10:15:30Z", "2026-11-21T25:15:30Z",
           "2026-11-21 10:15:30Z", "2026-00-21T10:15:30Z", "2026-11-32T10:15:30Z", "2026-11-00T10:15:30Z",
           "2026-11-21T10:60:30Z", "2026-11-21T10:15:60Z", "2026-11-21T10:15:30.Z", "2026-11-21T10:15:30z",
           "2026-11-21T10:15:30+24:00", "2026-11-21T10:15:30+01:60", "2026-11-21T10:15:30+0100",
           "2026-11-21T10:15:30Zx", "2026-11-21T10:15:30.1234567890Z",
           "2026-11-21T10:15:30." + std::string(1'000'000, '1') + "Z"}) {
    const auto refused = writeOpenLineage(View(graph), {.eventTime = time}, out);
    ASSERT_FALSE(refused.ok()) << time.substr(0, 99);
    EXPECT_EQ(refused.error().kind, ErrorKind::Malformed);
  }
  for (const char* time : {"2026-11-21T10:15:30.5+01:00", "2026-12-31T23:59:59.123456789-23:59",
                           "2026-01-01T00:00:00Z", "2026-11-21T10:15:30.5Z"})
    EXPECT_TRUE(writeOpenLineage(View(graph), {.eventTime = time}, out).ok()) << time;
  EXPECT_EQ(writeOpenLineage(View(graph, ViewKind::Tables), {}, out).error().kind, ErrorKind::Refused);
  EXPECT_EQ(out, "");
}

TEST(FormatOpenLineage, TellsTheTimeInUniversalTimeUnlessItIsGiven) {
  GraphSketch sketch;
  sketch.job("load");
  std::string out;
  ASSERT_TRUE(writeOpenLineage(View(sketch.build()), {}, out).ok());
  EXPECT_THAT(json::parse(out)["eventTime"].get<std::string>(),
              testing::MatchesRegex("....-..-..T..:..:..\\....Z"));
}

TEST(FormatOpenLineage, TellsOfNoJobAsADataset) {
  GraphSketch sketch;
  sketch.edge(sketch.job("first"), sketch.job("second"), Access::Via);
  for (const auto& event : events(sketch.build())) {
    EXPECT_EQ(event["inputs"], json::array());
    EXPECT_EQ(event["outputs"], json::array());
  }
}

TEST(FormatOpenLineage, KnowsADataSourceInAnyCase) {
  GraphSketch sketch;
  sketch.edge(sketch.table("Warehouse.dw.t", "Warehouse"), sketch.job("load"), Access::Read);
  OpenLineageOptions options;
  options.namespaces["WAREHOUSE"] = "postgres://db:5432/dwh";
  EXPECT_EQ(events(sketch.build(), options).at(0)["inputs"][0]["namespace"], "postgres://db:5432");
}

} // namespace
