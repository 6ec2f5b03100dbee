// Listens to repository events and fires some: example_events
#include <qvreposres/cpp.h>

#include <cstdio>
#include <exception>
#include <iostream>

namespace {

// Called on the thread that fires, one event at a time.
class Printer : public RepositoryObjectChange {
public:
  void objectChanged(const QvbString& repository, RepositoryObjectChangeType type, const QvbString& object,
                     int id, const QvbString&) override {
    std::cout << repository << ": " << object << ' ' << id << " was " << type << '\n';
  }
  void objectRenamed(const QvbString& repository, const QvbString&, int id, const QvbString&,
                     const QvbString& oldName, const QvbString& newName) override {
    std::cout << repository << ": " << id << " was renamed from " << oldName << " to " << newName << '\n';
  }
  void contentChanged(const QvbString& repository, const QvbString& object, RepositoryObjectChangeType,
                      const QvbString& detail) override {
    std::cout << repository << ": the content of " << object << " changed: " << detail << '\n';
  }
};

} // namespace

int main() try {
  const qvreposres::Library library;
  Printer printer;
  const qvreposres::Subscription subscription(printer);
  QvReposEventManager* events = getRepositoryEventManager(); // the library's own
  events->fireObjectChanged("Sales", RepositoryObjectCreated, "batch_jobs/load", 7, "");
  events->fireObjectRenamed("Sales", "batch_jobs/load", 7, "", "load", "load_customers");
  events->fireContentChanged("Sales", "batch_jobs/load_customers", RepositoryObjectModified, "step 2");
  return 0;
} catch (const std::exception& failure) { // short memory
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}
