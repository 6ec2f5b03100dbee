#include "qvxbb/qvlock.h"

#include "qvxbase/qvbfault.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <thread>
#include <vector>

namespace {

TEST(Lock, ExcludesOtherThreadsInBothModes) {
  constexpr int Threads = 4;
  constexpr int Rounds = 5000;
  QvLock* const lock = qvLockCreate(0, 1);
  ASSERT_NE(lock, nullptr);
  long counter = 0; // a data race, and a wrong sum, unless the lock excludes
  std::vector<std::thread> threads;
  threads.reserve(Threads);
  for (int i = 0; i < Threads; ++i)
    threads.emplace_back([&, mode = i % 2] {
      for (int round = 0; round < Rounds; ++round) {
        qvLockGet(lock, mode, 1);
        counter = counter + 1;
        qvLockRelease(lock);
      }
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(counter, long{Threads} * Rounds);
  qvLockDestroy(lock);
}

TEST(Lock, IsGrantedAgainToTheThreadThatHoldsIt) {
  QvLock* const lock = qvLockCreate(0, 1);
  qvLockGet(lock, 1, 1);
  qvLockGet(lock, 0, 1);
  qvLockRelease(lock);
  std::promise<void> started;
  bool released = false;
  std::thread other([&] {
    started.set_value();
    qvLockGet(lock, 0, 1);
    EXPECT_TRUE(released) << "granted while the other thread still held it once";
    qvLockRelease(lock);
  });
  started.get_future().wait();
  released = true;
  qvLockRelease(lock);
  other.join();
  qvLockDestroy(lock);
}

TEST(Lock, NullDoesNothing) {
  qvLockGet(nullptr, 0, 1);
  qvLockRelease(nullptr);
  qvLockDestroy(nullptr);
}

TEST(Lock, IsNullWhenItCannotBeMade) {
  qvbSetFaultHook(
      [](QvbFaultPoint point, const char*) { return point == QvbFaultPoint::LockCreate ? ENOMEM : 0; });
  EXPECT_EQ(qvLockCreate(0, 1), nullptr);
  qvbSetFaultHook(nullptr);
  QvLock* const lock = qvLockCreate(0, 1);
  EXPECT_NE(lock, nullptr);
  qvLockDestroy(lock);
}

} // namespace
