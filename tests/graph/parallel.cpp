#include "qvlineagegraph/parallel.h"

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <numeric>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace qvlineagegraph;
using testing::Each;

namespace {

// Work that squares numbers.
struct Squares {
  explicit Squares(std::size_t count, unsigned threads) : squares(count), workedOn(count) {
    work.items = count;
    work.threads = threads;
    work.worker = [this] {
      ++workers;
      return [this](std::size_t item) {
        squares[item] = item * item;
        ++workedOn[item];
      };
    };
    work.take = [this](std::size_t item) { taken.push_back(squares[item]); };
  }

  ParallelWork work;
  std::vector<std::size_t> squares;
  std::vector<std::size_t> workedOn;
  std::vector<std::size_t> taken;
  std::atomic<unsigned> workers = 0;
};

} // namespace

TEST(Parallel, TakesEachItemOnceAndInOrderWhateverTheThreads) {
  for (const unsigned threads : {0U, 1U, 2U, 7U}) {
    Squares squares(1000, threads);
    EXPECT_TRUE(workInOrder(squares.work));
    EXPECT_EQ(squares.taken, squares.squares);
    EXPECT_EQ(squares.taken.back(), 999U * 999U);
    EXPECT_THAT(squares.workedOn, Each(1U));
    EXPECT_TRUE(threads == 0 || squares.workers == threads) << squares.workers;
  }
}

TEST(Parallel, StartsNoMoreThreadsThanThereAreItems) {
  Squares two(2, 16);
  EXPECT_TRUE(workInOrder(two.work));
  EXPECT_LE(two.workers, 2U);
  Squares none(0, 16);
  EXPECT_TRUE(workInOrder(none.work));
  EXPECT_EQ(none.taken.size(), 0U);
}

TEST(Parallel, ReleasesWhatWasTakenOnTheThreadThatWorkedOnIt) {
  for (const unsigned threads : {1U, 3U}) {
    Squares squares(500, threads);
    std::vector<std::thread::id> workedBy(500);
    std::vector<std::atomic<bool>> isTaken(500);
    std::vector<std::atomic<unsigned>> released(500);
    std::atomic<unsigned> wrong = 0;
    squares.work.worker = [&] {
      return [&](std::size_t item) { workedBy[item] = std::this_thread::get_id(); };
    };
    squares.work.take = [&](std::size_t item) { isTaken[item] = true; };
    squares.work.release = [&](std::size_t item) {
      ++released[item];
      if (!isTaken[item] || workedBy[item] != std::this_thread::get_id())
        ++wrong;
    };
    EXPECT_TRUE(workInOrder(squares.work));
    EXPECT_EQ(wrong, 0U);
    EXPECT_THAT(released, Each(testing::Le(1U)));
    if (threads == 1) { // which releases each item before it begins the next but one
      EXPECT_EQ(std::accumulate(released.begin(), released.end(), 0U), 499U);
    }
  }
}

TEST(Parallel, TakesAndTellsOnTheCallingThread) {
  const auto caller = std::this_thread::get_id();
  Squares squares(200, 3);
  std::set<std::thread::id> seen;
  squares.work.take = [&](std::size_t) { seen.insert(std::this_thread::get_id()); };
  std::vector<std::size_t> told;
  squares.work.progress = [&](std::size_t done) {
    seen.insert(std::this_thread::get_id());
    told.push_back(done);
    return true;
  };
  EXPECT_TRUE(workInOrder(squares.work));
  EXPECT_EQ(seen, std::set{caller});
  EXPECT_TRUE(std::ranges::is_sorted(told));
}

TEST(Parallel, IsStoppedByTheCaller) {
  Squares squares(100, 1);
  squares.work.progress = [](std::size_t done) { return done < 7; };
  EXPECT_FALSE(workInOrder(squares.work));
  EXPECT_EQ(squares.taken.size(), 7U);
}

TEST(Parallel, PassesOnWhatAnOperationThrows) {
  Squares worker(100, 3);
  worker.work.worker = [] {
    return [](std::size_t item) {
      if (item == 50)
        throw std::runtime_error("item 50");
    };
  };
  EXPECT_THROW(workInOrder(worker.work), std::runtime_error);
  Squares taker(100, 3);
  taker.work.take = [](std::size_t) { throw std::runtime_error("taken"); };
  EXPECT_THROW(workInOrder(taker.work), std::runtime_error);
}
