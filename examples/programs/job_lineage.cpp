// Prints the lineage of one job file: example_job_lineage FILE
#include <qvreposres/qvlineage.h>
#include <qvreposres/qvresourcemgr.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2)
    return std::fprintf(stderr, "usage: %s FILE\n", argv[0]), 2;

  QvImpactAnalysis* store = getQvLineageAnalysis();
  QvResourceManager* manager = createQvResourceManager();
  QvResourceFactory* factory = store->getDefaultResourceFactory();
  QvResourceList* job = store->createResourceList();
  QvResourceList* used = store->createResourceList();

  // The job itself is one resource; what its SQL step names are the resources that it uses.
  QvbString file = argv[1];
  const bool scanned = manager->addSQLResourcesFromFile(file, factory, used);
  manager->addJobFileNode(factory, job, file);
  if (scanned && job->next())
    store->addDependentResources(job->getValue(), used);

  QvbString xml;
  if (scanned && store->getLineageAsString(&xml, nullptr, true))
    std::fputs(xml.asCstr(), stdout);

  used->release();
  job->release();
  manager->release();
  store->release();
  return scanned ? 0 : 1;
}
