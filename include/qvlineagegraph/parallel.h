// Work on many items by several threads, with an outcome that does not depend on their number.
#pragma once

#include "qvlineagegraph/export.h"

#include <cstddef>
#include <functional>

namespace qvlineagegraph {

struct ParallelWork {
  std::size_t items = 0;
  unsigned threads = 0; // 0: one for each core, fewer where there is little to do
  // Called once on each thread that works, the calling one among them: what it gives is called for every item that the
  // thread gets. Items are handed out in order, each to the thread that is free.
  std::function<std::function<void(std::size_t item)>()> worker;
  // Called on the calling thread for every item, in their order, some time after it was worked on.
  std::function<void(std::size_t item)> take;
  // Optional. Called for items that were taken, on the thread that worked on them, for as long as that one goes on: what
  // is left at the end is the caller's. Memory that one thread takes and another gives back costs both.
  std::function<void(std::size_t item)> release = {};
  // Optional. Told on the calling thread now and then how many items are done; false stops the work.
  std::function<bool(std::size_t done)> progress;
};

// Returns when all is worked on and taken, or, with false, when it was stopped. What an operation throws ends the work, too,
// and passes once every thread has ended.
QVLINEAGEGRAPH_API bool workInOrder(const ParallelWork& work);

} // namespace qvlineagegraph
