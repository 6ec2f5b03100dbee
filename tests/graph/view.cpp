#include "qvlineagegraph/view.h"

#include "qvlineagegraph/json.h"
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

// The same with a number for each name, walked on number by number, as one would with pencil and paper.
class ByHand {
public:
  explicit ByHand(const Steps& steps) {
    for (const auto& [from, all] : steps)
      for (const auto& to : all) {
        const int a = number(from), b = number(to);
        m_out[static_cast<std::size_t>(a)].push_back(b);
        m_in[static_cast<std::size_t>(b)].push_back(a);
      }
  }

  int number(const std::string& name) {
    const auto [known, isNew] = m_numbers.emplace(name, static_cast<int>(m_numbers.size()));
    if (isNew) {
      m_out.emplace_back();
      m_in.emplace_back();
    }
    return known->second;
  }

  std::vector<int> walked(int from, Direction direction, std::size_t depth) const {
    const auto& steps = direction == Direction::Downstream ? m_out : m_in;
    std::vector<bool> isFound(steps.size());
    std::vector<int> found{from}, edge{from};
    isFound[static_cast<std::size_t>(from)] = true;
    for (; !edge.empty() && depth > 0; --depth) {
      std::vector<int> next;
      for (const int one : edge)
        for (const int to : steps[static_cast<std::size_t>(one)])
          if (!isFound[static_cast<std::size_t>(to)]) {
            isFound[static_cast<std::size_t>(to)] = true;
            next.push_back(to);
          }
      found.insert(found.end(), next.begin(), next.end());
      edge = next;
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  // Groups that lead to each other, by the definition.
  std::set<Names> cycles() const {
    std::vector<std::set<int>> after(m_out.size());
    for (std::size_t i = 0; i < m_out.size(); ++i)
      for (const int to : m_out[i])
        for (const int beyond : walked(to, Direction::Downstream, anyDepth))
          after[i].insert(beyond);
    std::map<int, std::string> names;
    for (const auto& [name, one] : m_numbers)
      names[one] = name;
    std::set<Names> groups;
    for (std::size_t i = 0; i < after.size(); ++i) {
      Names group;
      for (const int other : after[i])
        if (after[static_cast<std::size_t>(other)].contains(static_cast<int>(i)))
          group.insert(names.at(other));
      if (!group.empty())
        groups.insert(group);
    }
    return groups;
  }

  static constexpr std::size_t anyDepth = 1'000'000;

private:
  std::map<std::string, int> m_numbers;
  std::vector<std::vector<int>> m_out, m_in;
};

Steps stepsOf(const View& view) {
  Steps steps;
  for (const Edge& edge : view.edges())
    steps[std::string(view.node(edge.from).name)].emplace(view.node(edge.to).name);
  return steps;
}

std::set<Names> cycleNames(const View& view) {
  std::set<Names> groups;
  for (const auto& cycle : cycles(view)) {
    EXPECT_TRUE(std::is_sorted(cycle.begin(), cycle.end()));
    EXPECT_TRUE(groups.insert(namesOf(view.graph(), cycle)).second);
  }
  return groups;
}

bool isReachedAsByHand(const View& view, const Steps& steps, Depth depth = {}) {
  ByHand hand(steps);
  std::vector<int> numbers(view.graph().nodeCount());
  for (const NodeIndex node : view.nodes())
    numbers[node] = hand.number(std::string(view.node(node).name));
  for (const NodeIndex node : view.nodes())
    for (const auto direction : {Direction::Upstream, Direction::Downstream}) {
      std::vector<int> found;
      for (const NodeIndex one : reached(view, std::span(&node, 1), direction, depth))
        found.push_back(numbers[one]);
      std::sort(found.begin(), found.end());
      if (found != hand.walked(numbers[node], direction, depth.value_or(ByHand::anyDepth))) {
        ADD_FAILURE() << view.node(node).name;
        return false;
      }
    }
  return true;
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
  std::map<std::string, Names> writers;
  for (const auto& model : models)
    writers[model.makes].insert(model.path);
  Steps steps;
  for (const auto& reader : models)
    for (const auto& table : reader.reads)
      for (const auto& writer : writers[table])
        steps[writer].insert(reader.path);
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
  EXPECT_TRUE(isReachedAsByHand(View(graph), stepsOfAll(models)));
  EXPECT_TRUE(isReachedAsByHand(View(graph, ViewKind::Tables), stepsOfTables(models)));
  EXPECT_TRUE(isReachedAsByHand(View(graph, ViewKind::Jobs), stepsOfJobs(models)));
}

TEST(HealthModels, AreReachedToADepth) {
  const auto models = healthModels();
  const Graph graph = graphOf(models);
  for (const std::size_t depth : {0U, 1U, 2U, 5U})
    EXPECT_TRUE(isReachedAsByHand(View(graph), stepsOfAll(models), depth));
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
  const auto expected = ByHand(stepsOfTables(models)).cycles();
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(cycleNames(View(graph, ViewKind::Tables)), expected);
  EXPECT_EQ(cycleNames(View(graph)), ByHand(stepsOfAll(models)).cycles());
}

RC_GTEST_PROP(RandomGraphs, AreReachedAsByHand, ()) {
  const Graph graph = randomGraph();
  const auto depth = *rc::gen::inRange<std::size_t>(0, 6);
  for (const ViewKind kind : {ViewKind::All, ViewKind::Jobs, ViewKind::Tables}) {
    const View view(graph, kind);
    const Steps steps = stepsOf(view);
    RC_ASSERT(isReachedAsByHand(view, steps));
    RC_ASSERT(isReachedAsByHand(view, steps, depth));
    RC_ASSERT(cycleNames(view) == ByHand(steps).cycles());
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

TEST(Graphs, KeepTheNotesOfThoseThatTheyTakeIn) {
  GraphBuilder first;
  first.add({.type = NodeType::Job, .name = "a"});
  const auto noted = first.add({.type = NodeType::Job, .name = "b"});
  first.addNote({NoteKind::Spelling, noted, "/b", "of b"});
  first.addNote({NoteKind::Failed, noNode, "/c", "of no node"});
  GraphBuilder all;
  all.add({.type = NodeType::Job, .name = "b"});
  all.merge(first.build());
  EXPECT_THAT(noteTexts(all.build()), ElementsAre("spelling|b|/b|of b", "failed||/c|of no node"));
}

TEST(Graphs, TakeWhatIsSaidOfADataSourceLater) {
  GraphBuilder builder;
  builder.add({.type = NodeType::DataSource, .name = "S", .kind = "ODBC"});
  builder.add({.type = NodeType::DataSource, .name = "S", .identity = "id of S"});
  const Graph graph = builder.build();
  ASSERT_EQ(graph.nodeCount(), 1U);
  EXPECT_EQ(graph.node(0).identity, "id of S");
  EXPECT_EQ(graph.node(0).kind, "ODBC");
}

TEST(Graphs, AreBuiltOnByWhoeverTheirBuilderPassesTo) {
  GraphBuilder first;
  const auto s = first.add({.type = NodeType::Table, .name = "s"});
  const auto a = first.add({.type = NodeType::Job, .name = "a"});
  first.addEdges({{s, a, Access::Read, false}});
  GraphBuilder second(std::move(first));
  const auto t = second.add({.type = NodeType::Table, .name = "t"});
  second.addEdges({{a, t, Access::Write, false}, {t, a, Access::Read, true}});
  GraphBuilder last;
  last = std::move(second);
  EXPECT_THAT(edgeTexts(last.build()),
              testing::UnorderedElementsAre("s read a", "t read a inferred", "a write t"));
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
TEST(Cycles, AreFoundOnALongPath) {
  constexpr int length = 200'000;
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

TEST(Views, OfAGraphThatWasSavedFromOneAreThatOne) {
  const Graph graph = graphOf({{"m", "dw.t", {"dw.s"}}, {"n", "dw.u", {"dw.t"}}});
  for (const ViewKind kind : {ViewKind::Tables, ViewKind::Jobs}) {
    const View view(graph, kind);
    std::string saved;
    writeJson(view, saved);
    const auto restored = readJson(saved);
    ASSERT_TRUE(restored.ok());
    EXPECT_FALSE(edgeTexts(view).empty());
    EXPECT_EQ(edgeTexts(View(*restored, kind)), edgeTexts(view));
    EXPECT_EQ(edgeTexts(View(*restored)), edgeTexts(view));
  }
}

TEST(Views, TakeNoStepFromOneKindOfEdgeToTheOther) {
  GraphBuilder builder;
  const auto s = builder.add({.type = NodeType::Table, .name = "s"});
  const auto t = builder.add({.type = NodeType::Table, .name = "t"});
  const auto job = builder.add({.type = NodeType::Job, .name = "job"});
  const auto file = builder.add({.type = NodeType::File, .name = "file"});
  builder.addEdge({s, t, Access::Via, true});
  builder.addEdge({t, job, Access::Read, false});
  builder.addEdge({job, file, Access::Write, false});
  const Graph graph = builder.build();
  EXPECT_THAT(edgeTexts(View(graph, ViewKind::Tables)), ElementsAre("s via t inferred"));
  EXPECT_THAT(edgeTexts(View(graph, ViewKind::Jobs)), IsEmpty());
}
