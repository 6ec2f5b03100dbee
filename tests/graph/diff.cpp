#include "qvlineagegraph/diff.h"

#include "support/graphtext.h"
#include "support/healthmodels.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <random>

using namespace qvlineagegraph;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Names = std::set<std::string>;

struct Expected {
  Names came, went, edgesCame, edgesWent, edgesChanged, downstream;
  friend bool operator==(const Expected&, const Expected&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Expected& expected) {
    for (const auto* names : {&expected.came, &expected.went, &expected.edgesCame, &expected.edgesWent,
                              &expected.edgesChanged, &expected.downstream}) {
      out << "{";
      for (const auto& name : *names)
        out << name << "; ";
      out << "}\n";
    }
    return out;
  }
};

std::string nameOfNode(const Graph& graph, NodeIndex node) { return textOf(graph, node); }

std::string edgeName(const Graph& graph, const Edge& edge) {
  return std::string(graph.name(edge.from)) + " > " + std::string(graph.name(edge.to));
}

// A graph as sets of names.
struct Flat {
  Names nodes;
  std::map<std::string, Names> steps;
  Names edges;

  explicit Flat(const Graph& graph) {
    for (NodeIndex i = 0; i < graph.nodeCount(); ++i)
      if (graph.type(i) != NodeType::DataSource)
        nodes.emplace(graph.name(i));
    for (const Edge& edge : graph.edges().all()) {
      steps[std::string(graph.name(edge.from))].emplace(graph.name(edge.to));
      edges.insert(edgeName(graph, edge));
    }
  }

  void addBelow(const std::string& name, Names& found) const {
    if (!found.insert(name).second)
      return;
    if (const auto all = steps.find(name); all != steps.end())
      for (const auto& to : all->second)
        addBelow(to, found);
  }
};

Names without(const Names& all, const Names& others) {
  Names left;
  std::set_difference(all.begin(), all.end(), others.begin(), others.end(), std::inserter(left, left.end()));
  return left;
}

std::string reversed(const std::string& edge) {
  const auto arrow = edge.find(" > ");
  return edge.substr(arrow + 3) + " > " + edge.substr(0, arrow);
}

// The difference by the names alone.
Expected expectedDiff(const Graph& before, const Graph& after) {
  const Flat old(before), now(after);
  Expected expected{without(now.nodes, old.nodes),
                    without(old.nodes, now.nodes),
                    without(now.edges, old.edges),
                    without(old.edges, now.edges),
                    {},
                    {}};
  Names below;
  const auto headOf = [](const std::string& edge) { return edge.substr(edge.find(" > ") + 3); };
  for (const auto& [flat, nodes, edges] : {std::tuple(&now, &expected.came, &expected.edgesCame),
                                           std::tuple(&old, &expected.went, &expected.edgesWent)}) {
    Names found;
    for (const auto& node : *nodes)
      flat->addBelow(node, found);
    for (const auto& edge : *edges)
      flat->addBelow(headOf(edge), found);
    below.insert(found.begin(), found.end());
  }
  expected.downstream = without(without(below, expected.came), expected.went);
  for (const auto& edge : Names(expected.edgesCame))
    if (expected.edgesWent.erase(reversed(edge)) > 0) {
      expected.edgesCame.erase(edge);
      expected.edgesChanged.insert(edge);
    }
  return expected;
}

Expected textsOf(const Diff& diff, const Graph& before, const Graph& after) {
  Expected texts;
  for (const auto* changes : {&diff.jobs, &diff.tables})
    for (const auto& change : *changes)
      if (change.change == Change::Came)
        texts.came.emplace(after.name(change.after));
      else
        texts.went.emplace(before.name(change.before));
  for (const auto& change : diff.edges)
    if (change.change == Change::Went)
      texts.edgesWent.insert(edgeName(before, change.before));
    else
      (change.change == Change::Came ? texts.edgesCame : texts.edgesChanged)
          .insert(edgeName(after, change.after));
  for (const auto& node : diff.downstream) {
    EXPECT_EQ(before.name(node.before), after.name(node.after));
    texts.downstream.emplace(after.name(node.after));
  }
  return texts;
}

} // namespace

TEST(Differences, OfAGraphToItselfAreNone) {
  const Graph graph = graphOf(healthModels());
  const Diff none = diff(graph, graph);
  EXPECT_TRUE(none.empty());
  EXPECT_THAT(none.downstream, IsEmpty());
}

TEST(Differences, TellWhatCameWentAndChangedSides) {
  const auto build = [](bool isNew) {
    GraphBuilder builder;
    const auto job = builder.add(
        {.type = NodeType::Job, .name = "load", .identity = isNew ? "/new/load.djf" : "/old/load.djf"});
    const auto table = [&](const char* name) {
      return builder.add({.type = NodeType::Table, .name = name, .identity = "id " + std::string(name)});
    };
    const auto turned = table("turned"), kept = table("kept"), target = table("target");
    builder.addEdge({kept, job, Access::Read, isNew});
    builder.addEdge({job, target, Access::Write, false});
    if (isNew) {
      builder.addEdge({job, turned, Access::Write, false});
      builder.addEdge({table("fresh"), job, Access::Read, false});
    } else {
      builder.addEdge({turned, job, Access::Read, false});
      builder.addEdge({job, table("gone"), Access::Write, false});
    }
    return builder.build();
  };
  const Graph before = build(false), after = build(true);
  const Diff changes = diff(before, after);
  EXPECT_THAT(changes.jobs, IsEmpty()) << "jobs are known by name, wherever they lie";
  ASSERT_EQ(changes.tables.size(), 2U);
  EXPECT_EQ(nameOfNode(after, changes.tables[0].after), "table fresh");
  EXPECT_EQ(nameOfNode(before, changes.tables[1].before), "table gone");
  const Expected texts = textsOf(changes, before, after);
  EXPECT_EQ(texts.edgesChanged, (Names{"load > turned"}));
  EXPECT_EQ(texts.edgesCame, (Names{"fresh > load"}));
  EXPECT_EQ(texts.edgesWent, (Names{"load > gone"}));
  EXPECT_EQ(texts.downstream, (Names{"load", "target", "turned"}));
}

TEST(Differences, KnowTablesByIdentityInAnyCase) {
  const auto build = [](const char* identity, const char* name) {
    GraphBuilder builder;
    builder.add({.type = NodeType::Table, .name = name, .identity = identity});
    return builder.build();
  };
  EXPECT_TRUE(diff(build("ID", "S.t"), build("id", "s.T")).empty());
  EXPECT_EQ(diff(build("id", "S.t"), build("other", "S.t")).tables.size(), 2U);
  EXPECT_TRUE(diff(build("", "S.t"), build("", "s.T")).empty());
}

TEST(Differences, OfHealthModelsAfterRandomEditsAreThoseOfTheirRows) {
  std::mt19937 random(20260101);
  const auto pick = [&](std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
  };
  const auto models = healthModels();
  const Graph before = graphOf(models);
  for (int round = 0; round < 8; ++round) {
    auto edited = models;
    for (int edit = 0; edit < 5 * round + 1; ++edit) {
      auto& model = edited[pick(edited.size())];
      switch (pick(6)) {
      case 0:
        model.reads.push_back(edited[pick(edited.size())].makes);
        break;
      case 1:
        if (!model.reads.empty())
          model.reads.erase(model.reads.begin() + static_cast<std::ptrdiff_t>(pick(model.reads.size())));
        break;
      case 2:
        model.makes += "_renamed";
        break;
      case 3:
        model.path += "_moved";
        break;
      case 4:
        if (!model.reads.empty())
          std::swap(model.reads[pick(model.reads.size())], model.makes);
        break;
      default:
        edited.erase(edited.begin() + static_cast<std::ptrdiff_t>(pick(edited.size())));
      }
    }
    const Graph after = graphOf(edited);
    EXPECT_EQ(textsOf(diff(before, after), before, after), expectedDiff(before, after));
    EXPECT_EQ(textsOf(diff(after, before), after, before), expectedDiff(after, before));
  }
}

RC_GTEST_PROP(Differences, OfRandomGraphsAreThoseOfTheirNames, ()) {
  const Graph before = randomGraph();
  const Graph after = randomGraph();
  RC_ASSERT(textsOf(diff(before, after), before, after) == expectedDiff(before, after));
}

TEST(Differences, KnowAJobByTheExtensionOfItsFileWhetherItsNameHasItOrNot) {
  const auto add = [](GraphBuilder& builder, const char* name, const char* file) {
    builder.add({.type = NodeType::Job, .name = name, .identity = file, .file = file});
  };
  GraphBuilder before, after;
  add(before, "x/a", "/old/x/a.djf");
  add(after, "x/a.DJF", "/new/x/a.DJF");
  add(after, "x/a.xsq", "/new/x/a.xsq");
  const Graph former = before.build(), newer = after.build();
  const Diff changes = diff(former, newer);
  ASSERT_EQ(changes.jobs.size(), 1U);
  EXPECT_EQ(changes.jobs[0].change, Change::Came);
  EXPECT_EQ(nameOfNode(newer, changes.jobs[0].after), "job x/a.xsq");
}

TEST(Differences, OfAGraphWithFilesToItselfAreNone) {
  const auto build = [](bool isWritten) {
    GraphBuilder builder;
    const auto job = builder.add({.type = NodeType::Job, .name = "load"});
    const auto file = builder.add({.type = NodeType::File, .name = "in.txt", .identity = "/in.txt"});
    const auto other = builder.add({.type = NodeType::File, .name = "out.txt", .identity = "/out.txt"});
    builder.addEdge({file, job, Access::Read, false});
    if (isWritten)
      builder.addEdge({job, other, Access::Write, false});
    return builder.build();
  };
  const Graph graph = build(true), less = build(false);
  EXPECT_TRUE(diff(graph, graph).empty());
  const Diff changes = diff(less, graph);
  EXPECT_EQ(changes.edges.size(), 1U);
  EXPECT_THAT(changes.jobs, IsEmpty());
  EXPECT_THAT(changes.tables, IsEmpty());
  EXPECT_THAT(changes.downstream, IsEmpty()) << "a file is neither job nor table";
}
