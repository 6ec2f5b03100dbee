#include "positionindex.h"

#include "support/allocations.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <map>
#include <vector>

namespace {

// Things by their number, with few hashes among many of them.
class Things {
public:
  explicit Things(std::size_t hashes) : m_hashes(hashes) {}

  std::size_t find(std::size_t thing) const {
    return m_index.find(hashOf(thing), [&](std::size_t at) { return m_things[at] == thing; });
  }
  void add(std::size_t thing) {
    m_index.insert(hashOf(thing), m_things.size());
    m_things.push_back(thing);
  }
  void remove(std::size_t thing) { m_index.erase(hashOf(thing), find(thing)); }

private:
  std::size_t hashOf(std::size_t thing) const { return thing % m_hashes * 0x9e3779b97f4a7c15; }

  std::size_t m_hashes;
  std::vector<std::size_t> m_things;
  PositionIndex m_index;
};

TEST(PositionIndex, IsAMapOfPositions) {
  EXPECT_TRUE(rc::check([] {
    const std::size_t kinds = *rc::gen::element<std::size_t>(4, 40, 400);
    Things things(*rc::gen::element<std::size_t>(1, 3, 1'000));
    std::map<std::size_t, std::size_t> model;
    std::size_t added = 0;
    for (const std::size_t thing :
         *rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange<std::size_t>(0, kinds))) {
      const auto known = model.find(thing);
      RC_ASSERT(things.find(thing) == (known == model.end() ? PositionIndex::None : known->second));
      if (known == model.end()) {
        things.add(thing);
        model.emplace(thing, added++);
      } else {
        things.remove(thing);
        model.erase(known);
      }
    }
    for (std::size_t thing = 0; thing < kinds; ++thing)
      RC_ASSERT(things.find(thing) == (model.contains(thing) ? model[thing] : PositionIndex::None));
  }));
}

TEST(PositionIndex, TakesNoMemoryBeforeTheFirst) {
  const long before = Allocations::alive;
  const PositionIndex index;
  EXPECT_EQ(index.find(1, [](std::size_t) { return true; }), PositionIndex::None);
  EXPECT_EQ(Allocations::alive, before);
}

TEST(PositionIndex, IsAsItWasWhenMemoryIsShort) {
  PositionIndex index;
  const auto has = [&](std::size_t position) {
    return index.find(position * 7, [&](std::size_t at) { return at == position; }) == position;
  };
  for (std::size_t position = 0; position < 100; ++position) {
    Allocations::left = 0;
    bool isInserted = true;
    try {
      index.insert(position * 7, position);
    } catch (const std::bad_alloc&) {
      isInserted = false;
    }
    Allocations::left = -1;
    EXPECT_EQ(has(position), isInserted);
    for (std::size_t earlier = 0; earlier < position; ++earlier)
      EXPECT_TRUE(has(earlier));
    if (!isInserted)
      index.insert(position * 7, position);
  }
  EXPECT_THROW(index.insert(0, PositionIndex::None), std::bad_alloc);
}

} // namespace
