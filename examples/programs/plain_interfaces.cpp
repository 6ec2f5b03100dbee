// Prints the lineage of one job file, with the interfaces as they are: example_plain_interfaces FILE
#include <qvreposres/qvlineage.h>
#include <qvreposres/qvresourcemgr.h>
#include <qvxbase/qvbreleased.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2)
    return std::fprintf(stderr, "usage: %s FILE\n", argv[0]), 2;

  const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  const Released<QvResourceManager> manager(createQvResourceManager());
  const Released<QvResourceList> job(store->createResourceList());
  const Released<QvResourceList> used(store->createResourceList());
  QvResourceFactory* factory = store->getDefaultResourceFactory(); // the store's own

  // The job itself is one resource; what its SQL step names are the resources that it uses.
  QvbString file = argv[1];
  const bool scanned = manager->addSQLResourcesFromFile(file, factory, used.get());
  manager->addJobFileNode(factory, job.get(), file);
  if (scanned && job->next())
    store->addDependentResources(job->getValue(), used.get());

  QvbString xml;
  if (scanned && store->getLineageAsString(&xml, nullptr, true))
    std::fputs(xml.asCstr(), stdout);
  return scanned ? 0 : 1;
}
