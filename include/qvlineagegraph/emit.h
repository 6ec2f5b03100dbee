// Posting events to a backend that speaks OpenLineage.
//
// The transfer is the platform's (qvxhttp/qvxhttp.h): http and https only, certificates verified, no redirect followed,
// bounded waits.
#pragma once

#include "qvlineagegraph/export.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace qvlineagegraph {

struct EmitOptions {
  std::string url;         // without a path, "/api/v1/lineage" is added; a query stays behind it
  std::string apiKey;      // sent as a bearer token; empty: none
  std::size_t batch = 100; // how many events a request carries, where the backend takes several
  unsigned attempts = 5;   // of each request, at least 1
  std::chrono::milliseconds pause{
      500}; // before the second attempt; doubled before each further one, or what Retry-After asks for
            // where that is longer; 30 s at most
  std::size_t first = 0; // the index of the first event to be posted
  // Told after each answer how many events, counted from the beginning, need not be posted again; false ends it
  // where any are left.
  std::function<bool(std::size_t done)> progress;
};

struct RefusedEvent {
  std::size_t index = 0;
  std::string reason;
};

struct EmitReport {
  std::size_t accepted = 0;
  std::vector<RefusedEvent> refused; // by index
  std::size_t done = 0;              // as progress() was told last
  std::string stopped;               // why the events from `done` on were not posted; empty: all were
};

// Posts the events in their order, each a line of JSON. An event that the backend refuses is passed over; a request that
// fails otherwise (no answer, 408, 429, 5xx) is tried again, and ends it when its attempts are used up, as do a redirect
// and an answer that access is denied. A backend that takes no batches gets the events one by one.
QVLINEAGEGRAPH_API EmitReport emitEvents(std::span<const std::string> events, const EmitOptions& options);

} // namespace qvlineagegraph
