// Random graphs, built here and as sets of pairs: both know the same nodes, edges and what lies up and down stream. RC_PARAMS
// asks for more of them: RC_PARAMS="max_success=100000".
#include "qvlineagegraph/json.h"
#include "support/graphsketch.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <set>

using namespace qvlineagegraph;

namespace {

struct Link {
  unsigned job;
  unsigned table;
  bool writes;
};

} // namespace

namespace rc {
template<>
struct Arbitrary<Link> {
  static Gen<Link> arbitrary() {
    return gen::build<Link>(gen::set(&Link::job, gen::inRange(0U, 6U)),
                            gen::set(&Link::table, gen::inRange(0U, 6U)), gen::set(&Link::writes));
  }
};
} // namespace rc

namespace {

using Pairs = std::set<std::pair<std::string, std::string>>;

Pairs pairsOf(const Graph& graph) {
  Pairs pairs;
  for (const Edge& edge : graph.edges().all())
    pairs.emplace(graph.name(edge.from), graph.name(edge.to));
  return pairs;
}

Graph graphOf(const std::vector<Link>& links, Pairs* pairs) {
  GraphSketch sketch;
  for (const Link link : links) {
    const std::string job = "j" + std::to_string(link.job);
    const std::string table = "t" + std::to_string(link.table);
    const auto jobNode = sketch.job(job);
    const auto tableNode = sketch.table(table);
    if (link.writes)
      sketch.edge(jobNode, tableNode, Access::Write);
    else
      sketch.edge(tableNode, jobNode, Access::Read);
    pairs->insert(link.writes ? std::pair(job, table) : std::pair(table, job));
  }
  return sketch.build();
}

RC_GTEST_PROP(GraphModel, AGraphIsASetOfPairs, (const std::vector<Link>& links)) {
  Pairs pairs;
  const Graph graph = graphOf(links, &pairs);
  RC_ASSERT(pairsOf(graph) == pairs);
  std::set<std::string> names;
  for (const auto& [from, to] : pairs) {
    names.insert(from);
    names.insert(to);
  }
  RC_ASSERT(graph.nodeCount() == names.size());
  for (NodeIndex node = 0; node < graph.nodeCount(); ++node) {
    Pairs around;
    for (const Edge& edge : graph.edges().out(node))
      around.emplace(graph.name(edge.from), graph.name(edge.to));
    for (const Edge& edge : graph.edges().in(node))
      around.emplace(graph.name(edge.from), graph.name(edge.to));
    const std::string name(graph.name(node));
    Pairs expected;
    for (const auto& pair : pairs)
      if (pair.first == name || pair.second == name)
        expected.insert(pair);
    RC_ASSERT(around == expected);
  }
}

RC_GTEST_PROP(GraphModel, ASavedGraphIsTheSameSetOfPairs, (const std::vector<Link>& links)) {
  Pairs pairs;
  const Graph graph = graphOf(links, &pairs);
  std::string json;
  writeJson(View(graph, ViewKind::All), json);
  const auto read = readJson(json);
  RC_ASSERT(read.ok());
  RC_ASSERT(pairsOf(*read) == pairs);
}

RC_GTEST_PROP(GraphModel, MergedGraphsAreTheUnionOfTheirPairs,
              (const std::vector<Link>& a, const std::vector<Link>& b)) {
  Pairs pairs;
  const Graph first = graphOf(a, &pairs);
  const Graph second = graphOf(b, &pairs);
  GraphBuilder builder;
  builder.merge(first);
  builder.merge(second);
  RC_ASSERT(pairsOf(builder.build()) == pairs);
}

} // namespace
