// The library as a whole: what was built, and its start and end.
//
// A host may unload the library while no thread uses it: everything that it made on first use ends then, the event manager
// and the file cache included where they were not shut down. When the process ends it stays as it is to the last.
#pragma once

#include "qvreposres/export.h"

extern "C" {

// Name, version and build in one line: "Repository Resource Library version 2.1 (build 46)".
QVREPOSRES_API extern const char* const qvx_build_info;
// The number of the build and the version alone: 46, "2.1".
QVREPOSRES_API extern const int qvx_build_number;
QVREPOSRES_API extern const char* const qvx_build_version;

// Makes the process-wide event manager (qvreposeventmgr.h) when there is none. Call it on one thread before
// concurrent use. 0 on success, -1 when memory is short. `reserved` is ignored; `*out` becomes null, whatever the
// result.
QVREPOSRES_API int qvReposResStartup(void* reserved, void** out);
// Ends the event manager, without a word to the listeners that are still registered; a second call does
// nothing. Call it when no other thread uses the library any more. The next start makes a manager with
// another client identifier.
QVREPOSRES_API void qvReposResShutdown();
}
