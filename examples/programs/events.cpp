// Listens to repository events and fires some: example_events
#include <qvreposres/qvreposeventmgr.h>
#include <qvreposres/qvreposres.h>

#include <cstdio>

namespace {

// Called on the thread that fires, one event at a time.
class Printer : public RepositoryObjectChange {
public:
  void objectChanged(const QvbString& repository, RepositoryObjectChangeType type, const QvbString& object,
                     int id, const QvbString&) override {
    QvbString word;
    getRepositoryEventChangeTypeString(type, &word);
    std::printf("%s: %s %d was %s\n", repository.asCstr(), object.asCstr(), id, word.asCstr());
  }
  void objectRenamed(const QvbString& repository, const QvbString&, int id, const QvbString&,
                     const QvbString& oldName, const QvbString& newName) override {
    std::printf("%s: %d was renamed from %s to %s\n", repository.asCstr(), id, oldName.asCstr(),
                newName.asCstr());
  }
  void contentChanged(const QvbString& repository, const QvbString& object, RepositoryObjectChangeType,
                      const QvbString& detail) override {
    std::printf("%s: the content of %s changed: %s\n", repository.asCstr(), object.asCstr(), detail.asCstr());
  }
};

} // namespace

int main() {
  void* reserved = nullptr;
  if (qvReposResStartup(nullptr, &reserved) != 0)
    return 1;
  Printer printer; // stays ours: the manager keeps a plain pointer
  QvReposEventManager* events = getRepositoryEventManager();
  events->addRepositoryObjectChangeListener(&printer);
  events->fireObjectChanged("Sales", RepositoryObjectCreated, "batch_jobs/load", 7, "");
  events->fireObjectRenamed("Sales", "batch_jobs/load", 7, "", "load", "load_customers");
  events->fireContentChanged("Sales", "batch_jobs/load_customers", RepositoryObjectModified, "step 2");
  events->removeRepositoryObjectChangeListener(&printer);
  qvReposResShutdown();
  return 0;
}
