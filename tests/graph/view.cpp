#include "qvlineagegraph/view.h"

#include "support/graphtext.h"
#include "support/healthmodels.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <map>

using namespace qvlineagegraph;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Names = std::set<std::string>;
// The names that each name leads to.
using Steps = std::map<std::string, Names>;

Steps reversed(const Steps& steps) {
  Steps back;
  for (const auto& [from, all] : steps)
    for (const auto& to : all)
      back[to].insert(from);
  return back;
}

// By walking on name by name, as one would with pencil and paper.
Names walked(const Steps& steps, const std::string& from, std::size_t depth = 1'000'000) {
  Names found{from};
  Names edge = found;
  while (!edge.empty() && depth-- > 0) {
    Names next;
    for (const auto& name : edge)
      if (const auto step = steps.find(name); step != steps.end())
        for (const auto& to : step->second)
          if (found.insert(to).second)
            next.insert(to);
    edge = next;
  }
  return found;
}

Steps stepsOf(const View& view) {
  Steps steps;
  for (const Edge& edge : view.edges())
    steps[std::string(view.node(edge.from).name)].emplace(view.node(edge.to).name);
  return steps;
}

// Groups of names that lead to each other, by the definition.
std::set<Names> cyclesOf(const Steps& steps) {
  std::map<std::string, Names> after;
  for (const auto& [from, all] : steps)
    for (const auto& to : all) {
      const auto beyond = walked(steps, to);
      after[from].insert(beyond.begin(), beyond.end());
    }
  std::set<Names> groups;
  for (const auto& [name, all] : after) {
    Names group;
    for (const auto& other : all)
      if (after[other].contains(name))
        group.insert(other);
    if (group.contains(name))
      groups.insert(group);
  }
  return groups;
}

std::set<Names> cycleNames(const View& view) {
  std::set<Names> groups;
  for (const auto& cycle : cycles(view)) {
    EXPECT_TRUE(std::is_sorted(cycle.begin(), cycle.end()));
    EXPECT_TRUE(groups.insert(namesOf(view.graph(), cycle)).second);
  }
  return groups;
}

void expectReached(const View& view, const Steps& steps, Depth depth = {}) {
  const Steps back = reversed(steps);
  for (const NodeIndex node : view.nodes()) {
    const std::string name(view.node(node).name);
    const std::size_t most = depth.value_or(1'000'000);
    ASSERT_EQ(namesOf(view.graph(), reached(view, std::span(&node, 1), Direction::Downstream, depth)),
              walked(steps, name, most))
        << name;
    ASSERT_EQ(namesOf(view.graph(), reached(view, std::span(&node, 1), Direction::Upstream, depth)),
              walked(back, name, most))
        << name;
  }
}

// The steps of each view of the models, from their rows alone.
Steps stepsOfAll(const std::vector<HealthModel>& models) {
  Steps steps;
  for (const auto& model : models) {
    steps[model.path].insert("Health." + model.makes);
    for (const auto& table : model.reads)
      steps["Health." + table].insert(model.path);
  }
  return steps;
}
Steps stepsOfTables(const std::vector<HealthModel>& models) {
  Steps steps;
  for (const auto& model : models)
    for (const auto& table : model.reads)
      steps["Health." + table].insert("Health." + model.makes);
  return steps;
}
Steps stepsOfJobs(const std::vector<HealthModel>& models) {
  Steps steps;
  for (const auto& writer : models)
    for (const auto& reader : models)
      if (std::count(reader.reads.begin(), reader.reads.end(), writer.makes) > 0)
        steps[writer.path].insert(reader.path);
  return steps;
}

// Models with a few of their tables exchanged, so that some of them feed themselves.
std::vector<HealthModel> tangled(std::vector<HealthModel> models) {
  for (std::size_t i = 0; i < models.size(); i += 100)
    models[i].reads.push_back(models[(i * 7 + 500) % models.size()].makes);
  models[3].reads.push_back(models[3].makes);
  return models;
}

} // namespace

TEST(HealthModels, HaveTheirNumberOfModelsAndEdges) {
  const Graph graph = graphOf(healthModels());
  EXPECT_EQ(graph.counts().jobs, 1054U);
  EXPECT_EQ(graph.counts().reads, 2731U);
}

TEST(HealthModels, AreReachedInBothDirectionsInEveryView) {
  const auto models = healthModels();
  const Graph graph = graphOf(models);
  expectReached(View(graph), stepsOfAll(models));
  expectReached(View(graph, ViewKind::Tables), stepsOfTables(models));
  expectReached(View(graph, ViewKind::Jobs), stepsOfJobs(models));
}

TEST(HealthModels, AreReachedToADepth) {
  const auto models = healthModels();
  const Graph graph = graphOf(models);
  for (const std::size_t depth : {0U, 1U, 2U, 5U})
    expectReached(View(graph), stepsOfAll(models), depth);
}

TEST(HealthModels, HaveTheTablesViewOfTheirRows) {
  const auto models = healthModels();
  const Graph graph = graphOf(models);
  const View view(graph, ViewKind::Tables);
  EXPECT_EQ(stepsOf(view), stepsOfTables(models));
  std::size_t count = 0;
  for (const auto& [from, all] : stepsOfTables(models))
    count += all.size();
  EXPECT_EQ(view.edges().size(), count);
}

TEST(HealthModels, HaveTheCyclesThatTheirTanglesMake) {
  EXPECT_THAT(cycles(View(graphOf(healthModels()))), IsEmpty());
  const auto models = tangled(healthModels());
  const Graph graph = graphOf(models);
  const auto expected = cyclesOf(stepsOfTables(models));
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(cycleNames(View(graph, ViewKind::Tables)), expected);
  EXPECT_EQ(cycleNames(View(graph)), cyclesOf(stepsOfAll(models)));
}

RC_GTEST_PROP(RandomGraphs, AreReachedAsByHand, ()) {
  const Graph graph = randomGraph();
  const auto depth = *rc::gen::inRange<std::size_t>(0, 6);
  for (const ViewKind kind : {ViewKind::All, ViewKind::Jobs, ViewKind::Tables}) {
    const View view(graph, kind);
    const Steps steps = stepsOf(view);
    const Steps back = reversed(steps);
    for (const NodeIndex node : view.nodes()) {
      const std::string name(graph.name(node));
      RC_ASSERT(namesOf(graph, reached(view, std::span(&node, 1), Direction::Downstream, depth)) ==
                walked(steps, name, depth));
      RC_ASSERT(namesOf(graph, reached(view, std::span(&node, 1), Direction::Upstream)) ==
                walked(back, name));
    }
    RC_ASSERT(cycleNames(view) == cyclesOf(steps));
  }
}

RC_GTEST_PROP(RandomGraphs, HaveViewsByWayOfTheOtherNodes, ()) {
  const Graph graph = randomGraph();
  std::set<std::string> jobs, tables;
  for (const Edge& first : graph.edges().all())
    for (const Edge& second : graph.edges().all())
      if (first.to == second.from) {
        auto& texts = graph.type(first.from) == NodeType::Job ? jobs : tables;
        texts.insert(std::string(graph.name(first.from)) + " via " + std::string(graph.name(second.to)));
      }
  const auto textsOf = [&](ViewKind kind) {
    std::set<std::string> texts;
    for (std::string one : edgeTexts(View(graph, kind))) {
      if (one.ends_with(" inferred"))
        one.resize(one.size() - std::string_view(" inferred").size());
      RC_ASSERT(texts.insert(one).second);
    }
    return texts;
  };
  RC_ASSERT(textsOf(ViewKind::Jobs) == jobs);
  RC_ASSERT(textsOf(ViewKind::Tables) == tables);
}

RC_GTEST_PROP(RandomGraphs, HaveEdgesFromBothEnds, ()) {
  const Graph graph = randomGraph();
  const View view(graph);
  std::vector<Edge> out, in;
  for (const NodeIndex node : view.nodes()) {
    for (const Edge& edge : view.out(node)) {
      RC_ASSERT(edge.from == node);
      out.push_back(edge);
    }
    RC_ASSERT(static_cast<std::size_t>(std::distance(view.in(node).begin(), view.in(node).end())) ==
              view.in(node).size());
    for (const Edge& edge : view.in(node)) {
      RC_ASSERT(edge.to == node);
      in.push_back(edge);
    }
  }
  const std::vector<Edge> all(view.edges().begin(), view.edges().end());
  RC_ASSERT(std::is_permutation(all.begin(), all.end(), out.begin(), out.end()));
  RC_ASSERT(std::is_permutation(all.begin(), all.end(), in.begin(), in.end()));
}

RC_GTEST_PROP(RandomGraphs, InduceTheEdgesBetweenWhatIsKept, ()) {
  const Graph graph = randomGraph();
  const View view(graph);
  std::vector<NodeIndex> kept;
  for (const NodeIndex node : view.nodes())
    if (*rc::gen::arbitrary<bool>())
      kept.push_back(node);
  std::vector<Edge> expected;
  for (const Edge& edge : view.edges())
    if (std::binary_search(kept.begin(), kept.end(), edge.from) &&
        std::binary_search(kept.begin(), kept.end(), edge.to))
      expected.push_back(edge);
  const View part = view.induced(kept);
  RC_ASSERT(std::vector<NodeIndex>(part.nodes().begin(), part.nodes().end()) == kept);
  RC_ASSERT(std::vector<Edge>(part.edges().begin(), part.edges().end()) == expected);
}

TEST(Views, HaveNoDataSourcesAsNodes) {
  const Graph graph = graphOf({{"m", "dw.t", {"dw.s"}}});
  EXPECT_EQ(namesOf(View(graph)), (Names{"m", "Health.dw.t", "Health.dw.s"}));
  EXPECT_EQ(namesOf(View(graph, ViewKind::Jobs)), (Names{"m"}));
  EXPECT_EQ(namesOf(View(graph, ViewKind::Tables)), (Names{"Health.dw.t", "Health.dw.s"}));
}

TEST(Views, InferAnEdgeOnlyWhereNothingBetterSaysIt) {
  GraphBuilder builder;
  const auto s = builder.add({.type = NodeType::Table, .name = "s"});
  const auto t = builder.add({.type = NodeType::Table, .name = "t"});
  const auto a = builder.add({.type = NodeType::Job, .name = "a"});
  const auto b = builder.add({.type = NodeType::Job, .name = "b"});
  builder.addEdge({s, a, Access::Read, true});
  builder.addEdge({a, t, Access::Write, false});
  GraphBuilder other;
  other.merge(builder.build());
  const Graph inferred = other.build();
  EXPECT_THAT(edgeTexts(View(inferred, ViewKind::Tables)), ElementsAre("s via t inferred"));
  other.merge(inferred);
  other.addEdge({s, b, Access::Read, false});
  other.addEdge({b, t, Access::Write, false});
  EXPECT_EQ(other.nameOf(b), "b");
  const Graph both = other.build();
  EXPECT_THAT(edgeTexts(View(both, ViewKind::Tables)), ElementsAre("s via t"));
}

TEST(Views, OfNothingAreEmpty) {
  const Graph graph;
  const View view(graph);
  EXPECT_THAT(view.nodes(), IsEmpty());
  EXPECT_THAT(view.edges(), IsEmpty());
  EXPECT_THAT(cycles(view), IsEmpty());
  EXPECT_THAT(reached(view, {}, Direction::Upstream), IsEmpty());
}

// A search that took stack for each step would not come back.
TEST(Cycles, AreFoundOnAPathOfAMillionSteps) {
  constexpr int length = 1'000'000;
  GraphBuilder builder;
  std::vector<NodeIndex> nodes;
  for (int i = 0; i < length; ++i)
    nodes.push_back(
        builder.add({.type = i % 2 == 0 ? NodeType::Job : NodeType::Table, .name = std::to_string(i)}));
  for (std::size_t i = 0; i < nodes.size(); ++i)
    builder.addEdge(
        {nodes[i], nodes[(i + 1) % nodes.size()], i % 2 == 0 ? Access::Write : Access::Read, false});
  const Graph graph = builder.build();
  const auto found = cycles(View(graph));
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found.front().size(), nodes.size());
}

TEST(GraphBuilders, KeepALongTextWhole) {
  const std::string longName(3'000'000, 'x');
  GraphBuilder builder;
  builder.add({.type = NodeType::Job, .name = "first"});
  builder.add({.type = NodeType::Job, .name = longName});
  builder.add({.type = NodeType::Job, .name = "last"});
  const Graph graph = builder.build();
  EXPECT_EQ(graph.name(0), "first");
  EXPECT_EQ(graph.name(1), longName);
  EXPECT_EQ(graph.name(2), "last");
}

TEST(GraphBuilders, CompleteWhatTheyKnow) {
  GraphBuilder builder;
  const auto source = builder.add({.type = NodeType::DataSource, .name = "S", .identity = "untyped"});
  EXPECT_EQ(builder.add({.type = NodeType::DataSource, .name = "s", .identity = "typed", .kind = "ODBC"}),
            source);
  const auto table = builder.add({.type = NodeType::Table, .name = "S.t", .identity = "ID"});
  EXPECT_EQ(builder.add({.type = NodeType::Table, .name = "other", .identity = "id", .source = source}),
            table);
  EXPECT_EQ(builder.find(NodeType::Table, "Id"), table);
  EXPECT_EQ(builder.find(NodeType::Job, "Id"), noNode);
  const Graph graph = builder.build();
  EXPECT_THAT(nodeTexts(graph), ElementsAre("datasource S", "table S.t in S"));
  EXPECT_EQ(graph.node(source).identity, "typed");
  EXPECT_EQ(builder.build().nodeCount(), 0U) << "a builder begins anew";
}
