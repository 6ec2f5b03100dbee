// An application's plugin: it brings the library into the process and takes it along when it goes.
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposeventmgr.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvreposres/qvreposres.h"
#include "qvreposres/qvreposserialize.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvreposres/qvresourceuri.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "qvxlog/qvxlog.h"

#include <string>
#include <thread>

namespace {

QvbString text(const std::string& bytes) { return QvbString(std::string_view(bytes)); }

class Listener : public RepositoryObjectChange {
public:
  void objectChanged(const QvbString&, RepositoryObjectChangeType, const QvbString&, int,
                     const QvbString&) override {
    ++heard;
  }
  void objectRenamed(const QvbString&, const QvbString&, int, const QvbString&, const QvbString&,
                     const QvbString&) override {}
  void contentChanged(const QvbString&, const QvbString&, RepositoryObjectChangeType,
                      const QvbString&) override {}
  int heard = 0;
};

struct Sink : QvLogSink {
  void record(const QvLogRecord&) override { ++records; }
  int records = 0;
};

bool usesEvents() {
  void* out = nullptr;
  Listener listener;
  if (qvReposResStartup(nullptr, &out) != 0)
    return false;
  QvReposEventManager* events = getRepositoryEventManager();
  events->addRepositoryObjectChangeListener(&listener);
  events->fireObjectChanged("repository", RepositoryObjectCreated, "object", 1, "uuid");
  events->removeRepositoryObjectChangeListener(&listener);
  return listener.heard == 1;
}

bool usesDefinitions(const std::string& folder) {
  qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(folder + "/system"));
  qvbSetConfigOption("BASE/REPOS_USER_PATH", text(folder + "/user"));
  const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
  const Released<QvReposConfigurationList> all(manager->getConfigurationsByType(QvReposConfigTypeSystem));
  return all && all->next();
}

bool usesLineage(const std::string& job) {
  const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  const Released<QvResourceManager> manager(createQvResourceManager());
  const Released<QvResourceList> jobs(store->createResourceList());
  const Released<QvResourceList> used(store->createResourceList());
  QvbString reference = text(job);
  manager->addJobFileNode(store->getDefaultResourceFactory(), jobs.get(), reference);
  manager->addSQLResourcesFromFile(reference, store->getDefaultResourceFactory(), used.get());
  if (!jobs->next() || !store->addDependentResources(jobs->getValue(), used.get()))
    return false;
  QvbString xml;
  QvbString message;
  return store->getLineageAsString(&xml, &message, true) && xml.find("DATA.PATH") > 0;
}

bool usesMetadata() {
  const Released<RepositorySerializationContext> context(createRepositoryMetadataSerializationContext());
  RepositoryMetadataObject* object = context->getMetadataObject("Table", "T1");
  object->addAttribute("name", "orders");
  QvbString xml;
  return context->serialize(object, &xml, nullptr, true) && context->deSerialize(xml, nullptr);
}

bool fetches(const std::string& name) {
  QvbString local;
  QvbString error;
  const ReleasedSubject subject(qvbSubjectCreate("alice", "a-secret"));
  return getFileCache()->getCacheFilename(subject.get(), text(name), &local, &error) == 0;
}

// Leaves to the library what it has made for the process: the cache, the manager of events, a sink.
int useEverything(const std::string& folder, const std::string& job, const std::string& url,
                  const std::string& tickets) {
  const auto sink = std::make_shared<Sink>();
  qvlogSetSink(sink);
  QvbString extension;
  qvbSetConfigOption("AUTH/SERVER", text(tickets));
  const bool works[] = {usesEvents(),
                        usesDefinitions(folder),
                        usesLineage(job),
                        usesMetadata(),
                        fetches(job),
                        fetches(url),
                        getFileExtensionForType("ProcessJob", &extension),
                        sink->records > 0};
  int used = 0;
  for (const bool service : works)
    used = used * 2 + service;
  return used;
}

} // namespace

// One bit for each of the eight services that did what it was asked for, in the caller's thread and in one of its own.
extern "C" QVREPOSRES_API int useLibrary(const char* folder, const char* job, const char* url,
                                         const char* tickets) {
  int inThread = 0;
  std::thread([&] { inThread = useEverything(folder, job, url, tickets); }).join();
  const int inCaller = useEverything(folder, job, url, tickets);
  return inCaller & inThread;
}
