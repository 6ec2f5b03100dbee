// Replaces the allocation functions of the test program, so that memory can run short. For one source per program.
#pragma once

#include <cstdlib>
#include <new>
#include <utility>

struct Allocations {
  // The allocations that still succeed; negative for no limit.
  static inline long left = -1;
  // The next allocation of this size fails; 0 for none.
  static inline std::size_t failingSize = 0;
  // The same for the next one that asks for null instead of an exception: few do, so none is met by chance.
  static inline std::size_t failingNothrowSize = 0;
  // The one of these that fails after it.
  static inline std::size_t nextFailingNothrowSize = 0;

  static bool mayHave(std::size_t size) {
    if (left == 0)
      return false;
    if (left > 0)
      --left;
    if (size != failingSize || size == 0)
      return true;
    failingSize = 0;
    return false;
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
  return Allocations::mayHave(size) ? std::malloc(size) : nullptr;
}
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* memory = Allocations::mayHave(size) ? std::malloc(size) : nullptr;
  if (!memory)
    throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
