// What the lineage graph library exports.
//
// Conventions of every header here:
//   Values      What a function returns is the caller's. Spans and views of text point into what they were asked of
//               and are good as long as that lives where it is.
//   Failures    What can fail gives a Result with a message in words. The one exception that leaves the library is
//               std::bad_alloc.
//   Order       Outcomes depend on the input alone, not on time, threads or hash values.
//   Threads     A const object may be read by any number of threads; everything else is for one at a time.
//   Names       Compared without regard to the case of ASCII letters, as identities are.
#pragma once

// Marks the functions and classes that stay visible outside the shared library; all else is hidden.
#define QVLINEAGEGRAPH_API __attribute__((visibility("default")))
// Marks what an exported class keeps to itself.
#define QVLINEAGEGRAPH_HIDDEN __attribute__((visibility("hidden")))
