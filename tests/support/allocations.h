// Replaces the allocation functions of the test program, so that memory can run short. For one source per program.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

struct Allocations {
  // The allocations of this thread that still succeed; negative for no limit.
  static inline thread_local long left = -1;
  // Whether only one of them fails then, and not every one from there on.
  static inline thread_local bool failsOnce = false;
  // Those of this thread that failed for the limit.
  static inline thread_local long failed = 0;
  // What all threads have and did not give back.
  static inline std::atomic<long> alive = 0;
  // The largest allocation of this thread.
  static inline thread_local std::size_t largest = 0;
  // The next allocation of this size fails; 0 for none.
  static inline std::size_t failingSize = 0;
  // The same for the next one that asks for null instead of an exception: few do, so none is met by chance.
  static inline std::size_t failingNothrowSize = 0;
  // The one of these that fails after it.
  static inline std::size_t nextFailingNothrowSize = 0;

  static bool mayHave(std::size_t size) {
    if (left == 0) {
      ++failed;
      if (failsOnce)
        left = -1;
      return false;
    }
    if (left > 0)
      --left;
    if (size != failingSize || size == 0)
      return true;
    failingSize = 0;
    return false;
  }
  static void* allocate(std::size_t size) {
    largest = std::max(largest, size);
    void* const memory = mayHave(size) ? std::malloc(size) : nullptr;
    if (memory)
      ++alive;
    return memory;
  }
  static void free(void* memory) {
    if (memory)
      --alive;
    std::free(memory);
  }

  // Does the work again and again, first with only its nth allocation failing, then with every one from the nth on, for
  // every n that it reaches. After each time, with memory again, `check` is called; n is for messages.
  template<class Work, class Check>
  static void failEach(const Work& work, const Check& check) {
    for (const bool once : {true, false}) {
      failed = 1;
      for (long n = 0; failed > 0; ++n) {
        failed = 0;
        failsOnce = once;
        left = n;
        work();
        left = -1;
        check(n);
      }
    }
  }
};

// Takes a step with ever more memory until it succeeds, and checks after each time that it did not, whether it said so or
// threw. The result is the number of allocations that it takes.
template<class Step, class Check>
long withEverMoreMemory(const Step& succeeds, const Check& checkFailure) {
  for (long allowed = 0;; ++allowed) {
    bool done = false;
    Allocations::left = allowed;
    try {
      done = succeeds();
    } catch (const std::bad_alloc&) {
    }
    Allocations::left = -1;
    if (done)
      return allowed;
    checkFailure();
  }
}

// Kept out of line: the compiler takes an inlined half of the pair for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (size == Allocations::failingNothrowSize) {
    Allocations::failingNothrowSize = std::exchange(Allocations::nextFailingNothrowSize, 0);
    return nullptr;
  }
  return Allocations::allocate(size);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* memory = Allocations::allocate(size);
  if (!memory)
    throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { Allocations::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { Allocations::free(memory); }
// For what a constructor left that threw.
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
  Allocations::free(memory);
}
