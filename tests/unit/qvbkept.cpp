#include "qvxbase/qvbkept.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <new>
#include <thread>

namespace {

struct Counted {
  Counted() {
    if (failures > 0) {
      --failures;
      throw std::bad_alloc();
    }
    ++made;
  }
  ~Counted() { ++ended; }
  static inline std::atomic<int> made{0};
  static inline std::atomic<int> ended{0};
  static inline int failures = 0;
};

class Kept : public testing::Test {
protected:
  Kept() { Counted::made = Counted::ended = Counted::failures = 0; }
  ~Kept() override { m_kept.end(); }

  QvbKept<Counted> m_kept;
};

TEST_F(Kept, IsMadeWhenItIsFirstAskedFor) {
  EXPECT_EQ(Counted::made, 0);
  EXPECT_EQ(&m_kept.get(), &m_kept.get());
  EXPECT_EQ(Counted::made, 1);
}

TEST_F(Kept, IsMadeOnceForManyThreads) {
  std::array<std::thread, 8> threads;
  for (auto& thread : threads)
    thread = std::thread([&] { m_kept.get(); });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(Counted::made, 1);
}

TEST_F(Kept, IsTriedAgainWhenItCouldNotBeMade) {
  Counted::failures = 1;
  EXPECT_THROW(m_kept.get(), std::bad_alloc);
  m_kept.get();
  EXPECT_EQ(Counted::made, 1);
}

TEST_F(Kept, EndsOnceAndIsMadeAnewForWhoeverComesLater) {
  m_kept.get();
  m_kept.end();
  m_kept.end();
  EXPECT_EQ(Counted::ended, 1);
  m_kept.get();
  EXPECT_EQ(Counted::made, 2);
}

} // namespace
