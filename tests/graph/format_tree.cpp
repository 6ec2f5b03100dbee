#include "support/graphsketch.h"

#include <gmock/gmock.h>

using namespace qvlineagegraph;
using testing::HasSubstr;

namespace {

std::string tree(const Graph& graph, const TreeOptions& options, ViewKind kind = ViewKind::All) {
  std::string out;
  writeTree(View(graph, kind), options, out);
  return out;
}

NodeIndex nodeNamed(const Graph& graph, std::string_view name) {
  for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
    if (graph.name(i) == name)
      return i;
  return noNode;
}

// a -> load -> b -> (report -> r, again -> b2 -> last -> r)
Graph sample() {
  GraphSketch sketch;
  sketch.step("load", {"a"}, {"b"});
  sketch.step("report", {"b"}, {"r"});
  sketch.step("again", {"b"}, {"b2"});
  sketch.step("last", {"b2", "b"}, {"r"});
  return sketch.build();
}

TEST(FormatTree, DrawsWhatLiesOnBothSidesOfARoot) {
  const Graph graph = sample();
  EXPECT_EQ(tree(graph, {.roots = {nodeNamed(graph, "b2")}}), "b2\n"
                                                              "├─ upstream\n"
                                                              "│  └─ again [job]\n"
                                                              "│     └─ b\n"
                                                              "│        └─ load [job]\n"
                                                              "│           └─ a\n"
                                                              "└─ downstream\n"
                                                              "   └─ last [job]\n"
                                                              "      └─ r\n"
                                                              "report [job]\n"
                                                              "├─ upstream\n"
                                                              "│  └─ b (shown above)\n"
                                                              "└─ downstream\n"
                                                              "   └─ r (shown above)\n");
}

TEST(FormatTree, DrawsOneSideWithoutANameForIt) {
  const Graph graph = sample();
  EXPECT_EQ(tree(graph, {.roots = {nodeNamed(graph, "a")}, .upstream = false}),
            "a\n"
            "└─ load [job]\n"
            "   └─ b\n"
            "      ├─ report [job]\n"
            "      │  └─ r\n"
            "      ├─ again [job]\n"
            "      │  └─ b2\n"
            "      │     └─ last [job]\n"
            "      │        └─ r (shown above)\n"
            "      └─ last [job] (shown above)\n");
}

TEST(FormatTree, StartsAtWhatNothingLeadsTo) {
  const Graph graph = sample();
  EXPECT_EQ(tree(graph, {.upstream = false}),
            tree(graph, {.roots = {nodeNamed(graph, "a")}, .upstream = false}));
}

TEST(FormatTree, EndsAtTheDepthAndDrawsLaterWhatWasCutOffThere) {
  GraphSketch sketch;
  sketch.step("long", {"a"}, {"b"});
  sketch.step("end", {"b"}, {"c"});
  sketch.step("short", {"a"}, {});
  const Graph graph = sketch.build();
  EXPECT_EQ(
      tree(graph, {.roots = {nodeNamed(graph, "a"), nodeNamed(graph, "b")}, .upstream = false, .depth = 2}),
      "a\n"
      "├─ long [job]\n"
      "│  └─ b\n"
      "└─ short [job]\n"
      "b\n"
      "└─ end [job]\n"
      "   └─ c\n");
}

TEST(FormatTree, DrawsACycleOnce) {
  GraphSketch sketch;
  sketch.step("there", {"a"}, {"b"});
  sketch.step("back", {"b"}, {"a"});
  EXPECT_EQ(tree(sketch.build(), {.upstream = false}), "there [job]\n"
                                                       "└─ b\n"
                                                       "   └─ back [job]\n"
                                                       "      └─ a\n"
                                                       "         └─ there [job] (shown above)\n");
}

TEST(FormatTree, MarksInferredEdgesAndKeepsNamesOnTheirLine) {
  GraphSketch sketch;
  sketch.edge(sketch.table("a\nb"), sketch.job("load"), Access::Read, true);
  EXPECT_EQ(tree(sketch.build(), {.upstream = false}), "a\\nb\n└─ load [job] (inferred)\n");
}

TEST(FormatTree, LeavesOutWhatANodeIsInAViewOfOneKind) {
  EXPECT_EQ(tree(sample(), {.upstream = false}, ViewKind::Jobs), "load\n"
                                                                 "├─ report\n"
                                                                 "├─ again\n"
                                                                 "│  └─ last\n"
                                                                 "└─ last (shown above)\n");
}

// Lines as long as the chain would be gigabytes.
TEST(FormatTree, OfALongChainGoesOnAtTheMarginAndHoldsEveryNode) {
  constexpr int length = 20000;
  GraphSketch sketch;
  for (int i = 0; i < length; ++i)
    sketch.step("j" + std::to_string(i), {"t" + std::to_string(i)}, {"t" + std::to_string(i + 1)});
  const std::string drawn = tree(sketch.build(), {.upstream = false});
  EXPECT_LT(drawn.size(), std::size_t{40} * 1000 * 1000);
  EXPECT_THAT(drawn, HasSubstr(" (continued below)\n"));
  EXPECT_THAT(drawn, HasSubstr(" t20000\n"));
}

// Every path to a node on its own would be more than a million of lines here.
TEST(FormatTree, HasNoMoreLinesThanTheGraphHasNodesAndEdges) {
  GraphSketch sketch;
  for (int layer = 0; layer < 20; ++layer)
    for (const char* side : {"l", "r"})
      sketch.step("j" + std::to_string(layer) + side, {"t" + std::to_string(layer)},
                  {"t" + std::to_string(layer + 1)});
  const Graph graph = sketch.build();
  const std::string drawn = tree(graph, {.upstream = false});
  EXPECT_LE(static_cast<std::size_t>(std::ranges::count(drawn, '\n')),
            graph.nodeCount() + graph.edges().size());
}

} // namespace
