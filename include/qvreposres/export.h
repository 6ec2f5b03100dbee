// What the library exports.
//
// Conventions of every header here:
//   Ownership   What a factory or an operation returns as a new object or list belongs to the caller, who
//               ends it with release(). Lists hold copies. The process-wide event manager and file cache
//               belong to the library.
//   Null        Object arguments are required unless their operation says otherwise, and output pointers too.
//               Texts passed by reference may be null texts, which count as empty unless an operation tells the
//               two apart. A text that comes back or is handed on is null only where it was never given and its
//               operation says so: what a record, row or object starts with, and what a cursor off the rows gives,
//               is an empty text.
//   Failures    A false, null or non-zero result, with a fixed English message where the operation has an
//               output for one. No exception crosses the boundary but the one below: what a host implements and
//               hands over (a listener, a sink, a factory, a resolver, a cache) must not throw.
//   Memory      An operation that memory is short for throws std::bad_alloc, unless its header tells of a failure
//               in its place.
//   Threads     The library starts none. Objects are for one thread at a time unless their header says
//               otherwise.
//   Slots       The order of virtual operations is a binary contract: new ones are added at the end.
//               Interfaces without a virtual destructor end through release() alone.
#pragma once

// Marks the functions, data and classes that stay visible outside the shared library; all else is hidden.
#define QVREPOSRES_API __attribute__((visibility("default")))
// Marks what an exported class keeps to itself.
#define QVREPOSRES_HIDDEN __attribute__((visibility("hidden")))
