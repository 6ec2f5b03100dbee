// What a library makes on first use and keeps for as long as it is loaded.
//
// It ends when the library is unloaded from a process that goes on. It does not end with the process: the static objects
// of others, and threads that still run, may use it to the last. Each library has a list of its own.
#pragma once

#include "qvxbase/qvbthreads.h"

#include <memory>
#include <utility>

struct QvbUnloadStep {
  virtual ~QvbUnloadStep() = default;
  std::unique_ptr<QvbUnloadStep> earlier;
};

// Hidden, so that each library has its own.
struct __attribute__((visibility("hidden"))) QvbUnloadSteps {
  // Destroyed before the list is looked at when the process ends, after that when the library is unloaded.
  struct ProcessEnd {
    ~ProcessEnd() { *isNear = true; }
    bool* isNear;
  };

  void add(std::unique_ptr<QvbUnloadStep> kept) {
    static const ProcessEnd end{&processEnds};
    const QvbMutexGuard guard(mutex);
    kept->earlier.reset(latest);
    latest = kept.release();
  }
  // The latest first: what was made later may use what was there.
  void unload() noexcept {
    while (latest && !processEnds) {
      const std::unique_ptr<QvbUnloadStep> ending(latest);
      latest = ending->earlier.release();
    }
  }

  QvbMutex mutex;
  QvbUnloadStep* latest = nullptr;
  bool processEnds = false;
};
inline constinit QvbUnloadSteps qvbUnloadSteps __attribute__((visibility("hidden")));

// In every source that keeps something; the first one that is called does the work.
[[gnu::destructor]] static void qvbUnload() { qvbUnloadSteps.unload(); }

// A new T, to be kept in a static reference.
template<class T, class... Args>
T& qvbUntilUnload(Args&&... args) {
  struct Kept : QvbUnloadStep {
    explicit Kept(Args&&... from) : value(std::forward<Args>(from)...) {}
    T value;
  };
  auto kept = std::make_unique<Kept>(std::forward<Args>(args)...);
  T& value = kept->value;
  qvbUnloadSteps.add(std::move(kept));
  return value;
}
