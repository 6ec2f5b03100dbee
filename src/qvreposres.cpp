#include "qvreposres/qvreposres.h"

#include "allocation.h"
#include "qvreposeventmgrimpl.h"
#include "qvxbase/qvbunload.h"

const char* const qvx_build_info = "Repository Resource Library version 2.1 (build 46)";
const int qvx_build_number = 46;
const char* const qvx_build_version = "2.1";

namespace {

QvReposEventManager* eventManager = nullptr;

// For a host that unloads the library without a word.
struct Shutdown {
  ~Shutdown() { qvReposResShutdown(); }
};

} // namespace

QvReposEventManager* getRepositoryEventManager() {
  [[maybe_unused]] static Shutdown& shutdown = qvbUntilUnload<Shutdown>();
  if (!eventManager)
    eventManager = new QvReposEventMgrImpl;
  return eventManager;
}

int qvReposResStartup(void* /*reserved*/, void** out) {
  *out = nullptr;
  return madeOrNull(getRepositoryEventManager) ? 0 : -1;
}

void qvReposResShutdown() {
  if (eventManager)
    eventManager->release();
  eventManager = nullptr;
}
