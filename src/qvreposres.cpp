#include "qvreposres/qvreposres.h"

#include "qvreposeventmgrimpl.h"

const char* const qvx_build_info = "Repository Resource Library version 2.1 (build 46)";
const int qvx_build_number = 46;
const char* const qvx_build_version = "2.1";

namespace {

QvReposEventManager* eventManager = nullptr;

} // namespace

QvReposEventManager* getRepositoryEventManager() {
  if (!eventManager)
    eventManager = new QvReposEventMgrImpl;
  return eventManager;
}

int qvReposResStartup(void* /*reserved*/, void** out) {
  *out = nullptr;
  return getRepositoryEventManager() ? 0 : -1;
}

void qvReposResShutdown() {
  if (eventManager)
    eventManager->release();
  eventManager = nullptr;
}
