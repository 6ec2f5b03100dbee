#include "qvreposcontainment.h"

#include "support/allocations.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cmath>
#include <deque>
#include <functional>
#include <set>
#include <utility>
#include <vector>

namespace {

// They end in their order. Contents have to outlive what contains them: where the order does not see to that, the nodes
// are cleared at the end.
using Nodes = std::deque<ContainmentNode>;

TEST(Containment, NothingContainsItselfAtAnyDepth) {
  Nodes nodes(4);
  EXPECT_FALSE(nodes[0].add(nodes[0]));
  for (std::size_t i = 0; i < 3; ++i)
    EXPECT_TRUE(nodes[i].add(nodes[i + 1]));
  for (std::size_t i = 0; i < 4; ++i)
    for (std::size_t j = i; j < 4; ++j)
      EXPECT_FALSE(nodes[j].add(nodes[i])) << i << j;
  EXPECT_TRUE(nodes[0].add(nodes[3])) << "twice below, but not in itself";
}

TEST(Containment, KnowsWhatIsContained) {
  Nodes nodes(2);
  EXPECT_FALSE(nodes[1].isContained());
  nodes[0].add(nodes[1]);
  EXPECT_TRUE(nodes[1].isContained());
  nodes[0].removeLast();
  EXPECT_FALSE(nodes[1].isContained());
  nodes[0].add(nodes[1]);
  nodes[0].clear();
  EXPECT_FALSE(nodes[1].isContained());
  EXPECT_TRUE(nodes[1].add(nodes[0])) << "what was taken apart closes no circle";
  nodes[1].clear();
}

TEST(Containment, CountsThePlacesOfMembersUpToALimit) {
  constexpr std::size_t levels = 100;
  Nodes nodes(2 * levels); // two on each level, both of which contain both of the next one
  EXPECT_EQ(nodes[0].places(10), 1u);
  for (std::size_t below = 2; below < nodes.size(); ++below)
    for (const auto above : {below / 2 * 2 - 2, below / 2 * 2 - 1})
      EXPECT_TRUE(nodes[above].add(nodes[below]));
  EXPECT_EQ(nodes[2 * levels - 1].places(100), 1u);
  EXPECT_EQ(nodes[2 * levels - 5].places(7), 7u);
  EXPECT_EQ(nodes[2 * levels - 5].places(6), 7u);
  EXPECT_EQ(nodes[2 * levels - 17].places(1000), 511u);
  EXPECT_GT(nodes[0].places(1 << 24), std::size_t{1} << 24);
  for (auto& node : nodes)
    node.clear();
}

// The same graph, with a search of everything at each addition.
class Reference {
public:
  explicit Reference(std::size_t size) : m_contents(size) {}
  bool add(std::size_t container, std::size_t content) {
    if (reaches(content, container))
      return false;
    m_contents[container].push_back(content);
    return true;
  }
  void clear(std::size_t container) { m_contents[container].clear(); }
  void removeLast(std::size_t container) { m_contents[container].pop_back(); }
  bool isEmpty(std::size_t container) const { return m_contents[container].empty(); }

private:
  bool reaches(std::size_t from, std::size_t to) const {
    std::set<std::size_t> seen{from};
    std::vector<std::size_t> pending{from};
    while (!pending.empty()) {
      const auto at = pending.back();
      pending.pop_back();
      if (at == to)
        return true;
      for (const auto content : m_contents[at])
        if (seen.insert(content).second)
          pending.push_back(content);
    }
    return false;
  }

  std::vector<std::vector<std::size_t>> m_contents;
};

// Long enough that levels are raised again and again.
bool agreesOnRandomAdditions(std::size_t size, std::size_t additions, unsigned window) {
  Nodes nodes(size);
  Reference reference(size);
  for (std::size_t i = 0; i < additions; ++i) {
    const auto container = *rc::gen::inRange<std::size_t>(0, size);
    // Mostly downwards and nearby, so that deep graphs come about.
    const auto step = *rc::gen::inRange<std::size_t>(1, window);
    const bool isDown = *rc::gen::inRange(0, 20) != 0;
    const auto content = (container + (isDown ? step : size - step)) % size;
    if (nodes[container].add(nodes[content]) != reference.add(container, content))
      return false;
    const auto change = *rc::gen::inRange(0, 200);
    if (change == 0) {
      nodes[container].clear();
      reference.clear(container);
    } else if (change == 1 && !reference.isEmpty(container)) {
      nodes[container].removeLast();
      reference.removeLast(container);
    }
  }
  for (auto& node : nodes)
    node.clear();
  return true;
}

TEST(Containment, RefusesExactlyWhatWouldCloseACircle) {
  EXPECT_TRUE(rc::check([] { return agreesOnRandomAdditions(12, 60, 12); }));
  EXPECT_TRUE(rc::check([] { return agreesOnRandomAdditions(100, 200, *rc::gen::element(2u, 4u, 40u)); }));
}

TEST(Containment, ADeepGraphOfManyLevelsStaysExact) {
  constexpr std::size_t size = 300;
  Nodes nodes(size);
  Reference reference(size);
  std::uint32_t random = 1;
  const auto next = [&](std::size_t limit) {
    random = random * 1664525 + 1013904223;
    return (random >> 8) % limit;
  };
  std::size_t refusals = 0;
  for (int i = 0; i < 3000; ++i) {
    auto container = next(size);
    auto content = next(size);
    if (container > content && next(8) != 0)
      std::swap(container, content);
    const bool isAdded = nodes[container].add(nodes[content]);
    ASSERT_EQ(isAdded, reference.add(container, content)) << i;
    refusals += !isAdded;
  }
  EXPECT_GT(refusals, 100u);
  for (auto& node : nodes)
    node.clear();
}

void put(ContainmentNode& container, ContainmentNode& content) { EXPECT_TRUE(container.add(content)); }

struct Shape {
  const char* name;
  // Builds it of about that many nodes.
  std::function<void(Nodes&, std::size_t)> build;
};

void chain(Nodes& nodes, std::size_t from, std::size_t to) {
  for (auto i = from; i + 1 < to; ++i)
    put(nodes[i], nodes[i + 1]);
}

// Nodes 0 to n/2 hang in a chain, and n/4 others share one content; what is below shared hangs from there.
void sharers(Nodes& nodes, std::size_t count, bool isLinkedFirst) {
  const auto chained = count / 2;
  chain(nodes, 0, chained);
  const auto shared = chained;
  chain(nodes, shared, shared + count / 4);
  for (auto i = shared + count / 4; i < count; ++i) {
    if (isLinkedFirst)
      put(nodes[chained - 1], nodes[i]);
    put(nodes[i], nodes[shared]);
    if (!isLinkedFirst)
      put(nodes[chained - 1], nodes[i]);
  }
}

const Shape linearShapes[] = {
    {"chain from the top", [](Nodes& nodes, std::size_t count) { chain(nodes, 0, count); }},
    {"chain from the bottom",
     [](Nodes& nodes, std::size_t count) {
       for (auto i = count - 1; i > 0; --i)
         put(nodes[i - 1], nodes[i]);
     }},
    {"star",
     [](Nodes& nodes, std::size_t count) {
       for (std::size_t i = 1; i < count; ++i)
         put(nodes[0], nodes[i]);
     }},
    {"star of a shared content",
     [](Nodes& nodes, std::size_t count) {
       for (std::size_t i = 1; i < count; ++i)
         put(nodes[i], nodes[0]);
     }},
    {"a large content shared below the end of a chain",
     [](Nodes& nodes, std::size_t count) { sharers(nodes, count, false); }},
    {"a large content shared by what hangs from the end of a chain",
     [](Nodes& nodes, std::size_t count) { sharers(nodes, count, true); }},
    {"units of eight stacked from the top",
     [](Nodes& nodes, std::size_t count) {
       for (std::size_t unit = 0; unit + 8 <= count; unit += 8) {
         chain(nodes, unit, unit + 8);
         if (unit > 0)
           put(nodes[unit - 1], nodes[unit]);
       }
     }},
    {"units of eight stacked from the bottom",
     [](Nodes& nodes, std::size_t count) {
       for (auto unit = count / 8; unit-- > 0;) {
         chain(nodes, unit * 8, unit * 8 + 8);
         if (unit + 1 < count / 8)
           put(nodes[unit * 8 + 7], nodes[unit * 8 + 8]);
       }
     }},
    {"diamonds from the top",
     [](Nodes& nodes, std::size_t count) {
       for (std::size_t i = 0; i + 3 < count; i += 2)
         for (const auto above : {i, i + 1})
           for (const auto below : {i + 2, i + 3})
             put(nodes[above], nodes[below]);
     }},
    {"diamonds from the bottom",
     [](Nodes& nodes, std::size_t count) {
       for (auto i = count / 2; i-- > 1;)
         for (const auto above : {2 * i - 2, 2 * i - 1})
           for (const auto below : {2 * i, 2 * i + 1})
             put(nodes[above], nodes[below]);
     }},
    {"built apart, then added below a chain, over and over",
     [](Nodes& nodes, std::size_t count) {
       chain(nodes, 0, count / 2);
       for (auto unit = count / 2; unit + 100 <= count; unit += 100) {
         chain(nodes, unit, unit + 100);
         put(nodes[count / 2 - 1], nodes[unit]);
       }
     }},
};

std::uint64_t stepsToBuild(const Shape& shape, std::size_t count) {
  Nodes nodes(count);
  const auto before = ContainmentNode::stepsSoFar();
  shape.build(nodes, count);
  const auto taken = ContainmentNode::stepsSoFar() - before;
  for (auto& node : nodes)
    node.clear();
  return taken;
}

TEST(Containment, CostsOfPlainShapesGrowWithTheirSize) {
  constexpr std::size_t size = 5000;
  for (const auto& shape : linearShapes) {
    const auto once = stepsToBuild(shape, size);
    const auto fourTimes = stepsToBuild(shape, 4 * size);
    EXPECT_LE(once, 8 * size) << shape.name;
    EXPECT_LE(fourTimes, 4 * 8 * size) << shape.name;
    RecordProperty(shape.name, static_cast<int>(fourTimes));
  }
}

// Additions anywhere in one order of all nodes: nothing is told by its shape.
TEST(Containment, AdditionsInNoOrderCostLessThanTheSizeTimesItsRoot) {
  constexpr std::size_t count = 40000;
  Nodes nodes(count);
  std::uint32_t random = 7;
  const auto next = [&](std::size_t limit) {
    random = random * 1664525 + 1013904223;
    return (random >> 8) % limit;
  };
  const auto before = ContainmentNode::stepsSoFar();
  std::size_t added = 0;
  for (std::size_t i = 0; i < 3 * count; ++i) {
    auto above = next(count);
    auto below = next(count);
    if (above == below)
      continue;
    if (above > below)
      std::swap(above, below);
    put(nodes[above], nodes[below]);
    ++added;
  }
  const auto taken = ContainmentNode::stepsSoFar() - before;
  EXPECT_LE(taken, added * static_cast<std::uint64_t>(std::sqrt(added)));
  RecordProperty("steps", static_cast<int>(taken));
  for (auto& node : nodes)
    node.clear();
}

TEST(Containment, AnAdditionThatThereIsNoMemoryForChangesNothing) {
  std::size_t failures = 0;
  Nodes nodes(40);
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    Allocations::left = 0;
    try {
      nodes[0].add(nodes[i]);
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    Allocations::left = -1;
    if (!nodes[i].isContained())
      put(nodes[0], nodes[i]);
    EXPECT_FALSE(nodes[i].add(nodes[0]));
  }
  EXPECT_GT(failures, 2u);
  nodes[0].clear();
}

} // namespace
