#include "qvlineagegraph/select.h"

#include "support/graphtext.h"
#include "support/healthmodels.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

using namespace qvlineagegraph;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Names = std::set<std::string>;

// crm.people -> load -> Warehouse.dw.customers -> mart/sum -> Warehouse.mart.total -> mart/report.
Graph chain() {
  GraphBuilder builder;
  const auto crm = builder.add({.type = NodeType::DataSource, .name = "Crm"});
  const auto warehouse = builder.add({.type = NodeType::DataSource, .name = "Warehouse"});
  const auto table = [&](const char* name, NodeIndex source) {
    return builder.add({.type = NodeType::Table, .name = name, .source = source});
  };
  const auto job = [&](const std::string& name) {
    const std::string file = "/srv/jobs/" + name + ".djf";
    return builder.add({.type = NodeType::Job, .name = name, .identity = file, .file = file});
  };
  const auto people = table("Crm.people", crm);
  const auto customers = table("Warehouse.dw.customers", warehouse);
  const auto total = table("Warehouse.mart.total", warehouse);
  const auto load = job("load"), sum = job("mart/sum"), report = job("mart/report");
  builder.addEdge({people, load, Access::Read, false});
  builder.addEdge({load, customers, Access::Write, false});
  builder.addEdge({customers, sum, Access::Read, false});
  builder.addEdge({sum, total, Access::Write, false});
  builder.addEdge({total, report, Access::Read, false});
  return builder.build();
}

Names selected(const View& view, const std::vector<std::string>& expressions,
               const std::vector<std::string>& exclude = {}) {
  const auto result = select(view, {expressions, exclude});
  EXPECT_TRUE(result.ok()) << (result ? "" : result.error().message);
  return result ? namesOf(result->view) : Names();
}

Error refusal(const View& view, const Selection& selection) {
  const auto result = select(view, selection);
  EXPECT_FALSE(result.ok());
  return result ? Error() : result.error();
}

const Names customersOnly{"Warehouse.dw.customers"};

} // namespace

TEST(Selecting, MatchesTablesFromTheEndOfTheDataPath) {
  const Graph graph = chain();
  const View view(graph);
  for (const char* name :
       {"customers", "dw.customers", "Warehouse.dw.customers", "DW.Customers", "*.customers", "cust*rs",
        "dw.*", "w*use.dw.*", "*dw*", "*use.d*", "cu\\stomers", "cu**m*rs"})
    EXPECT_EQ(selected(view, {name}), customersOnly) << name;
  for (const char* name :
       {"omers", "w.customers", "cust", "dw.", "Warehouse.customers", "customers*x", "\\*"})
    EXPECT_EQ(refusal(view, {{name}, {}}).kind, ErrorKind::NothingMatched) << name;
}

TEST(Selecting, MatchesJobsByLabelNameAndPath) {
  const Graph graph = chain();
  const View view(graph);
  for (const char* name : {"sum", "mart/sum", "jobs/mart/sum", "/srv/jobs/mart/sum", "/srv/jobs/mart/sum.djf",
                           "sum.djf", "s?m", "MART/SUM"}) {
    if (std::string_view(name) == "s?m") // no wildcard
      EXPECT_EQ(refusal(view, {{name}, {}}).kind, ErrorKind::NothingMatched);
    else
      EXPECT_EQ(selected(view, {name}), (Names{"mart/sum"})) << name;
  }
  EXPECT_EQ(selected(view, {"mart/*"}), (Names{"mart/sum", "mart/report"}));
}

TEST(Selecting, TakesADataSourceForItsTables) {
  const Graph graph = chain();
  EXPECT_EQ(selected(View(graph), {"warehouse"}), (Names{"Warehouse.dw.customers", "Warehouse.mart.total"}));
  EXPECT_EQ(selected(View(graph), {"type:DataSource"}),
            (Names{"Crm.people", "Warehouse.dw.customers", "Warehouse.mart.total"}));
}

TEST(Selecting, TakesWhatLiesAround) {
  const Graph graph = chain();
  const View view(graph);
  EXPECT_EQ(selected(view, {"+customers"}), (Names{"Crm.people", "load", "Warehouse.dw.customers"}));
  EXPECT_EQ(selected(view, {"1+customers"}), (Names{"load", "Warehouse.dw.customers"}));
  EXPECT_EQ(selected(view, {"0+customers"}), customersOnly);
  EXPECT_EQ(selected(view, {"customers+"}),
            (Names{"Warehouse.dw.customers", "mart/sum", "Warehouse.mart.total", "mart/report"}));
  EXPECT_EQ(selected(view, {"1+dw.customers+2"}),
            (Names{"load", "Warehouse.dw.customers", "mart/sum", "Warehouse.mart.total"}));
  EXPECT_EQ(selected(view, {"+customers+"}).size(), 6U);
}

TEST(Selecting, CountsEdgesOfTheViewThatIsShown) {
  const Graph graph = chain();
  EXPECT_EQ(selected(View(graph, ViewKind::Tables), {"people+1"}),
            (Names{"Crm.people", "Warehouse.dw.customers"}));
  EXPECT_EQ(selected(View(graph, ViewKind::Jobs), {"1+report"}), (Names{"mart/sum", "mart/report"}));
}

TEST(Selecting, TakesTypes) {
  const Graph graph = chain();
  EXPECT_EQ(selected(View(graph), {"type:Job"}), (Names{"load", "mart/sum", "mart/report"}));
  EXPECT_EQ(selected(View(graph), {"TYPE:table"}).size(), 3U);
  EXPECT_EQ(selected(View(graph), {"1+type:Table"}).size(), 5U);
}

TEST(Selecting, JoinsExpressionsAndLeavesOutWhatIsExcluded) {
  const Graph graph = chain();
  const View view(graph);
  EXPECT_EQ(selected(view, {"people", "report"}), (Names{"Crm.people", "mart/report"}));
  EXPECT_EQ(selected(view, {"people", "no such"}), (Names{"Crm.people"}));
  EXPECT_EQ(selected(view, {"+customers"}, {"load", "nothing"}),
            (Names{"Crm.people", "Warehouse.dw.customers"}));
  EXPECT_EQ(selected(view, {}, {"type:Job"}).size(), 3U);
  EXPECT_EQ(selected(view, {}).size(), 6U);
}

TEST(Selecting, TellsWhatBearsTheNames) {
  const Graph graph = chain();
  const auto result = select(View(graph), {{"+customers", "report"}, {"report"}});
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(namesOf(graph, result->named), customersOnly);
  EXPECT_THAT(edgeTexts(result->view),
              testing::UnorderedElementsAre("Crm.people read load", "load write Warehouse.dw.customers"));
}

TEST(Selecting, NamesTheNearestWhenNothingMatches) {
  const Graph graph = chain();
  const View view(graph);
  const Error error = refusal(view, {{"+dw.custmers"}, {}});
  EXPECT_EQ(error.kind, ErrorKind::NothingMatched);
  EXPECT_THAT(error.message,
              HasSubstr("nothing matches \"dw.custmers\"; the nearest names are: Warehouse.dw.customers"));
  EXPECT_THAT(nearestNames(view, "rport"), ElementsAre("mart/report"));
  EXPECT_THAT(nearestNames(view, "people", 1), ElementsAre("Crm.people"));
  EXPECT_TRUE(nearestNames(view, "people", 0).empty());
  EXPECT_TRUE(nearestNames(view, std::string(201, 'e')).empty());
  EXPECT_EQ(refusal(view, {{"people"}, {"+report"}}).kind, ErrorKind::NothingMatched);
}

TEST(Selecting, TellsWhatIsNotThereToExclude) {
  const Graph graph = chain();
  const auto result = select(View(graph), {{"people", "nobody"}, {"dw.custmers", "load"}});
  ASSERT_TRUE(result.ok());
  EXPECT_THAT(result->unmatched,
              ElementsAre(HasSubstr("nothing matches \"nobody\""),
                          HasSubstr("nothing matches \"dw.custmers\"; the nearest names are: "
                                    "Warehouse.dw.customers")));
}

TEST(Selecting, RefusesWhatIsNoExpression) {
  const Graph graph = chain();
  const View view(graph);
  for (const char* text :
       {"", "+", "2+", "++", "type:", "type:Tables", "99999999999999999999+a", "a+99999999999999999999"})
    EXPECT_EQ(refusal(view, {{text}, {}}).kind, ErrorKind::Malformed) << text;
  EXPECT_EQ(refusal(view, {{}, {"+"}}).kind, ErrorKind::Malformed);
  EXPECT_THAT(refusal(view, {{"2+"}, {}}).message,
              HasSubstr("\"2+\" names nothing; write a table or a job, as in +dw.customers"));
}

RC_GTEST_PROP(Selecting, FindsEveryNameThatIsQuoted, ()) {
  const auto alphabet =
      rc::gen::element('a', '+', '*', '\\', '2', '.', '/', ':', ' ', '"', '[', '\n', '\xc3');
  const auto names = *rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(
      rc::gen::nonEmpty(rc::gen::container<std::string>(alphabet))));
  GraphBuilder builder;
  for (const auto& name : names)
    builder.add({.type = NodeType::Table, .name = name});
  builder.add({.type = NodeType::Table, .name = "type:Table"});
  const Graph graph = builder.build();
  const View view(graph);
  for (const NodeIndex node : view.nodes()) {
    const auto result = select(view, {{quotedName(graph.name(node))}, {}});
    RC_ASSERT(result.ok());
    RC_ASSERT(std::binary_search(result->named.begin(), result->named.end(), node));
  }
}

TEST(Selecting, FindsEachHealthModelWithAllThatFeedsIt) {
  const auto models = healthModels();
  const Graph graph = graphOf(models);
  const View view(graph);
  for (std::size_t i = 0; i < models.size(); i += 25) {
    const auto result = select(view, {{"+" + quotedName(models[i].makes)}, {}});
    ASSERT_TRUE(result.ok());
    ASSERT_EQ(result->named.size(), 1U);
    EXPECT_EQ(namesOf(result->view), namesOf(graph, reached(view, result->named, Direction::Upstream)));
  }
}

TEST(Selecting, TakesADotThatBeginsAFilesNameForNoExtension) {
  GraphBuilder builder;
  builder.add({.type = NodeType::Job, .name = "all", .file = "/srv/jobs/.djf"});
  const Graph graph = builder.build();
  EXPECT_EQ(selected(View(graph), {"jobs/.djf"}), (Names{"all"}));
  EXPECT_EQ(refusal(View(graph), {{"/srv/jobs/"}, {}}).kind, ErrorKind::NothingMatched);
}

TEST(Selecting, TellsThatTheViewLacksWhatTheGraphHas) {
  const Graph graph = chain();
  const View jobs(graph, ViewKind::Jobs), tables(graph, ViewKind::Tables);
  EXPECT_EQ(refusal(jobs, {{"+dw.customers"}, {}}).message,
            "\"dw.customers\" is not in this view, which shows jobs alone");
  EXPECT_EQ(refusal(jobs, {{"Warehouse"}, {}}).message,
            "\"Warehouse\" is not in this view, which shows jobs alone");
  EXPECT_EQ(refusal(tables, {{"mart/sum"}, {}}).message,
            "\"mart/sum\" is not in this view, which shows tables alone");
  EXPECT_THAT(refusal(tables, {{"mart/sun"}, {}}).message, testing::StartsWith("nothing matches"));
  const NodeIndex part[] = {2, 3};
  EXPECT_THAT(refusal(tables.induced(part), {{"total"}, {}}).message, testing::StartsWith("nothing matches"));
}
