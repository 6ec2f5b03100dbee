#include "qvxbb/qvbautosingleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

// Counts what the registry asks for.
class Holder : public QvbAutoSingleton {
public:
  explicit Holder(const char* id) : m_id(id) {}

  const char* getId() override {
    ++idsAsked;
    return m_id;
  }
  void* createObject() override {
    if (onCreate)
      onCreate();
    return canCreate ? new int(++theCreated) : nullptr;
  }
  void deleteObject(void* object) override {
    if (onDelete)
      onDelete();
    ++theDeleted;
    delete static_cast<int*>(object);
  }

  bool canCreate = true;
  int idsAsked = 0;
  std::function<void()> onCreate;
  std::function<void()> onDelete;

  static inline std::atomic<int> theCreated = 0;
  static inline std::atomic<int> theDeleted = 0;

private:
  const char* m_id;
};

class Singleton : public testing::Test {
protected:
  void SetUp() override { Holder::theCreated = Holder::theDeleted = 0; }
};

TEST_F(Singleton, IsMadeOnceAndFoundAgainUnderItsIdentifier) {
  Holder first("test.one");
  bool created = false;
  ASSERT_TRUE(first.initialize(&created));
  EXPECT_TRUE(created);
  ASSERT_NE(first.getObject(), nullptr);

  const std::string sameText = "test.one";
  Holder second(sameText.c_str());
  EXPECT_EQ(second.getObject(), nullptr);
  ASSERT_TRUE(second.initialize(&created));
  EXPECT_FALSE(created);
  EXPECT_EQ(second.getObject(), first.getObject());
  EXPECT_EQ(Holder::theCreated, 1);

  second.cleanupOnly();
  EXPECT_EQ(Holder::theDeleted, 1);
}

TEST_F(Singleton, HasOneObjectPerIdentifier) {
  Holder one("test.one");
  Holder other("test.other");
  ASSERT_TRUE(one.initialize(nullptr));
  ASSERT_TRUE(other.initialize(nullptr));
  EXPECT_NE(one.getObject(), other.getObject());
  one.cleanupOnly();
  EXPECT_EQ(Holder::theDeleted, 1);
  bool created = true;
  EXPECT_TRUE(other.initialize(&created));
  EXPECT_FALSE(created);
  other.cleanupOnly();
}

TEST_F(Singleton, IsMadeAnewAfterCleanup) {
  Holder holder("test.one");
  holder.cleanupOnly();
  EXPECT_EQ(Holder::theDeleted, 0) << "nothing was registered";
  ASSERT_TRUE(holder.initialize(nullptr));
  holder.cleanupOnly();
  holder.cleanupOnly();
  EXPECT_EQ(Holder::theDeleted, 1);
  bool created = false;
  ASSERT_TRUE(holder.initialize(&created));
  EXPECT_TRUE(created);
  EXPECT_EQ(*static_cast<int*>(holder.getObject()), 2);
  holder.terminate();
  EXPECT_EQ(holder.getObject(), nullptr);
  EXPECT_EQ(Holder::theDeleted, 2);
}

TEST_F(Singleton, IsAbsentWhenItsObjectCannotBeMade) {
  Holder holder("test.one");
  holder.canCreate = false;
  bool created = true;
  EXPECT_FALSE(holder.initialize(&created));
  EXPECT_FALSE(created);
  EXPECT_EQ(holder.getObject(), nullptr);
  holder.cleanupOnly();
  EXPECT_EQ(Holder::theDeleted, 0);

  holder.canCreate = true;
  EXPECT_TRUE(holder.initialize(&created));
  EXPECT_TRUE(created);
  holder.cleanupOnly();
}

TEST_F(Singleton, IsAbsentWhenMemoryForItIsShort) {
  Holder holder("test.one");
  holder.onCreate = [] { throw std::bad_alloc(); };
  bool created = true;
  EXPECT_FALSE(holder.initialize(&created));
  EXPECT_FALSE(created);
  EXPECT_EQ(holder.getObject(), nullptr);

  holder.onCreate = nullptr;
  EXPECT_TRUE(holder.initialize(&created));
  EXPECT_TRUE(created);
  holder.cleanupOnly();
}

TEST_F(Singleton, IsFoundWhileAnotherOneIsMade) {
  Holder holder("test.one");
  ASSERT_TRUE(holder.initialize(nullptr));
  Holder slow("test.slow");
  bool found = false;
  // the registry's lock is held, and would keep the thread waiting
  slow.onCreate = [&] { std::thread([&] { found = Holder("test.one").initialize(nullptr); }).join(); };
  ASSERT_TRUE(slow.initialize(nullptr));
  EXPECT_TRUE(found);
  slow.cleanupOnly();
  holder.cleanupOnly();
}

TEST_F(Singleton, AsksForItsIdentifierOncePerOperation) {
  Holder holder("test.one");
  holder.initialize(nullptr);
  EXPECT_EQ(holder.idsAsked, 1);
  holder.initialize(nullptr);
  EXPECT_EQ(holder.idsAsked, 2);
  holder.cleanupOnly();
  EXPECT_EQ(holder.idsAsked, 3);
}

TEST_F(Singleton, MayAskForAnotherOneWhileItIsMade) {
  Holder outer("test.outer");
  Holder inner("test.inner");
  outer.onCreate = [&] { EXPECT_TRUE(inner.initialize(nullptr)); };
  outer.onDelete = [&] { inner.cleanupOnly(); };
  ASSERT_TRUE(outer.initialize(nullptr));
  EXPECT_EQ(Holder::theCreated, 2);
  outer.cleanupOnly();
  EXPECT_EQ(Holder::theDeleted, 2);
}

TEST_F(Singleton, CannotBeFoundWhileItIsDestroyed) {
  Holder holder("test.one");
  ASSERT_TRUE(holder.initialize(nullptr));
  void* const dying = holder.getObject();
  Holder seeker("test.one");
  bool created = false;
  holder.onDelete = [&] { EXPECT_TRUE(seeker.initialize(&created)); };
  holder.cleanupOnly();
  EXPECT_TRUE(created);
  EXPECT_NE(seeker.getObject(), dying);
  seeker.cleanupOnly();
}

TEST_F(Singleton, IsMadeOnceByThreadsThatRace) {
  constexpr int Threads = 8;
  std::barrier start(Threads);
  std::atomic<int> makers = 0;
  std::vector<void*> found(Threads);
  std::vector<std::thread> threads;
  threads.reserve(Threads);
  for (int i = 0; i < Threads; ++i)
    threads.emplace_back([&, i] {
      Holder holder("test.race");
      holder.onCreate = [] { std::this_thread::yield(); };
      start.arrive_and_wait();
      bool created = false;
      EXPECT_TRUE(holder.initialize(&created));
      makers += created ? 1 : 0;
      found[static_cast<std::size_t>(i)] = holder.getObject();
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(makers, 1);
  EXPECT_EQ(Holder::theCreated, 1);
  EXPECT_EQ(std::set<void*>(found.begin(), found.end()).size(), 1U);
  Holder("test.race").cleanupOnly();
}

// Runs after everything that this program's tests left behind is gone: a crash or a leak fails the program.
struct AtExit {
  ~AtExit() {
    Holder holder("test.exit");
    holder.initialize(nullptr);
    holder.cleanupOnly();
  }
};
const AtExit atExit;

} // namespace
