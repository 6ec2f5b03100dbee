#include "qvlineagegraph/formats.h"
#include "qvlineagegraph/json.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

using namespace qvlineagegraph;
using nlohmann::json;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

const std::vector<std::string> hostileNames{
    "</script><script>alert(1)</script>",
    "<!-- <script>",
    "a \"quoted\" 'name' \\ with\nline feeds\r\n\tand tabs",
    "[brackets] {braces} (parentheses) & &amp; %3C",
    "Gr\u00f6\u00dfen \u65e5\u672c\u8a9e \U0001F600 \u202Eright to left",
    "separators \u2028 and \u2029",
    std::string("a null\0 byte and \x01", 17),
    "@DATA@",
};

std::string page(const View& view, const HtmlOptions& options = {}) {
  std::string out;
  EXPECT_TRUE(writeHtml(view, options, out).ok());
  return out;
}

// The text of the element that holds the data, as a browser finds it.
std::string dataOf(const std::string& html) {
  const std::string start = R"(<script type="application/json" id="data">)";
  const auto from = html.find(start) + start.size();
  return html.substr(from, html.find("</script", from) - from);
}

std::size_t count(const std::string& text, std::string_view part) {
  std::size_t found = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++found;
  return found;
}

NodeIndex add(GraphBuilder& builder, NodeType type, std::string_view name, std::string_view identity = {}) {
  return builder.add({.type = type, .name = name, .identity = identity});
}

struct Sample {
  Graph graph;
  NodeIndex job, read, written;

  Sample() {
    GraphBuilder builder;
    job = add(builder, NodeType::Job, "batch_jobs/load", "qvr:///load");
    read = add(builder, NodeType::Table, "Shop.dbo.orders", "qvd:///Shop?table=orders");
    written = add(builder, NodeType::Table, "orders");
    builder.addEdge({.from = read, .to = job, .access = Access::Read});
    builder.addEdge({.from = job, .to = written, .access = Access::Write, .inferred = true});
    graph = builder.build();
  }
};

} // namespace

TEST(FormatHtml, HoldsTheWholeViewAsASavedGraph) {
  const Sample sample;
  const std::string html = page(View(sample.graph));
  EXPECT_THAT(html, StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(html, EndsWith("</html>\n"));

  const auto read = readJson(dataOf(html));
  ASSERT_TRUE(read.ok()) << read.error().message;
  EXPECT_EQ(read->nodeCount(), 3U);
  EXPECT_EQ(read->name(sample.job), "batch_jobs/load");
  EXPECT_EQ(read->edges().size(), 2U);
}

TEST(FormatHtml, OpensOnWhatWasSelected) {
  const Sample sample;
  const HtmlOptions options{.title = "Orders", .selected = {sample.written, sample.read}};
  const json data = json::parse(dataOf(page(View(sample.graph), options)));
  EXPECT_EQ(data["title"], "Orders");
  EXPECT_EQ(data["view"], "all");
  EXPECT_THAT(data["selection"],
              ElementsAre(json{"table", "orders"}, json{"table", "qvd:///Shop?table=orders"}));
}

TEST(FormatHtml, LeavesOutOfTheSelectionWhatTheViewDoesNotHold) {
  const Sample sample;
  const HtmlOptions options{.title = "", .selected = {sample.job, sample.read}};
  const json data = json::parse(dataOf(page(View(sample.graph, ViewKind::Tables), options)));
  EXPECT_EQ(data["view"], "tables");
  EXPECT_THAT(data["selection"], ElementsAre(json{"table", "qvd:///Shop?table=orders"}));
  EXPECT_EQ(json::parse(dataOf(page(View(sample.graph, ViewKind::Jobs))))["view"], "jobs");
}

TEST(FormatHtml, CarriesEveryNameAndEndsNoElementWithOne) {
  GraphBuilder builder;
  HtmlOptions options{.title = hostileNames[0], .selected = {}};
  for (const std::string& name : hostileNames)
    options.selected.push_back(add(builder, NodeType::Table, name, name));
  const Graph graph = builder.build();
  const std::string html = page(View(graph), options);

  const std::string empty = page(View(Graph()));
  for (const std::string_view markup : {"</script", "<script", "<!--", "@DATA@"})
    EXPECT_EQ(count(html, markup), count(empty, markup) + (markup == "@DATA@" ? 3 : 0)) << markup;

  const json data = json::parse(dataOf(html));
  EXPECT_EQ(data["title"], hostileNames[0]);
  ASSERT_THAT(data["nodes"], SizeIs(hostileNames.size()));
  for (std::size_t i = 0; i < hostileNames.size(); ++i) {
    EXPECT_EQ(data["nodes"][i]["name"], hostileNames[i]);
    EXPECT_EQ(data["selection"][i][1], hostileNames[i]);
  }
}

TEST(FormatHtml, WritesAReplacementForBytesThatAreNotText) {
  GraphBuilder builder;
  const NodeIndex node = add(builder, NodeType::Table, "a\xff", "b\xfe");
  const Graph graph = builder.build();
  const json data = json::parse(dataOf(page(View(graph), {.title = "\xc3", .selected = {node}})));
  EXPECT_EQ(data["title"], "\ufffd");
  EXPECT_EQ(data["nodes"][0]["identity"], "b\ufffd");
  EXPECT_EQ(data["selection"][0][1], "b\ufffd");
}

TEST(FormatHtml, AdmitsNothingFromElsewhere) {
  const std::string html = page(View(Graph()));
  const std::string start = "Content-Security-Policy\" content=\"";
  const auto from = html.find(start) + start.size();
  const std::string policy = html.substr(from, html.find('"', from) - from);
  EXPECT_THAT(policy, StartsWith("default-src 'none'; script-src 'sha256-"));
  EXPECT_EQ(count(policy, "unsafe"), 0U);
  EXPECT_EQ(count(policy, "http"), 0U);
  EXPECT_EQ(count(policy, "*"), 0U);
}

TEST(FormatHtml, AppendsToWhatIsThere) {
  std::string out = "before";
  ASSERT_TRUE(writeHtml(View(Graph()), {}, out).ok());
  EXPECT_THAT(out, StartsWith("before<!DOCTYPE html>"));
  EXPECT_THAT(json::parse(dataOf(out))["nodes"], IsEmpty());
}

TEST(FormatHtml, HoldsALargeGraph) {
  constexpr std::uint32_t nodes = 50'000;
  constexpr std::uint32_t edges = 250'000;
  GraphBuilder builder;
  for (std::uint32_t i = 0; i < nodes; ++i)
    add(builder, i % 2 ? NodeType::Job : NodeType::Table,
        (i % 2 ? "jobs/load_" : "Warehouse.dw.t_") + std::to_string(i));
  for (std::uint32_t i = 0; i < edges; ++i) {
    const NodeIndex table = (i * 2) % nodes;
    const NodeIndex job = (table + 1 + 2 * (i / (nodes / 2))) % nodes;
    builder.addEdge({.from = table, .to = job, .access = Access::Read});
  }
  const Graph graph = builder.build();
  const auto read = readJson(dataOf(page(View(graph))));
  ASSERT_TRUE(read.ok()) << read.error().message;
  EXPECT_EQ(read->nodeCount(), nodes);
  EXPECT_EQ(read->edges().size(), edges);
}
