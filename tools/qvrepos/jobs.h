// Job files: finding them, and what one of them touches.
#pragma once

#include "host.h"

#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"

#include <filesystem>

// Job files and the failures met on the way to them, both as absolute paths in the order of the search.
struct JobFiles {
  std::vector<std::string> files;
  std::vector<std::string> failures; // each "<path>: <reason>"
};

// A file stands for itself; a folder for the job files below it (by their extension), to any depth, in name order.
JobFiles findJobFiles(const std::vector<std::string>& paths);

// "their extensions are djf, ...": what makes a file in a folder a job file.
std::string jobFileExtensions();

// Says which names hold what XML cannot carry: the library writes U+FFFD for it, so that names which differ in nothing else
// look the same.
void noteLossyNames(Host& host, const std::vector<std::string>& names);

// The lineage of job files, gathered in a store.
class JobScanner {
public:
  JobScanner();

  // Empty on success, with the job's own resource in `job` and what its SQL step names in `used`; else the reason,
  // with file, line and column where the file is malformed.
  std::string scan(const std::string& path, QvResourceList* job, QvResourceList* used);

  QvImpactAnalysis* store() { return m_store.get(); }
  Released<QvResourceList> newList() { return Released<QvResourceList>(m_store->createResourceList()); }

private:
  Released<QvImpactAnalysis> m_store;
  Released<QvResourceManager> m_manager;
};
