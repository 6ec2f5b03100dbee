// Reading job files one by one.
#pragma once

#include "host.h"

#include "qvlineagegraph/scan.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"

// How the reading of a job file went: both empty for a step that is known.
struct ScannedJob {
  std::string failure;     // the reason, with file, line and column where the file is malformed
  std::string unknownRoot; // the root element of a file that is no step that is known
};

// Says which names hold what XML cannot carry: the library writes U+FFFD for it, so that names which differ in nothing else
// look the same.
void noteLossyNames(Host& host, const std::vector<std::string>& names);

// Says which files have one URI reference, and with it one identity: a backslash in a name counts as a slash.
void noteSharedNames(Host& host, const std::vector<std::string>& files);

// The lineage of job files, gathered in a store.
class JobScanner {
public:
  JobScanner();

  // On success with the job's own resource in `job` and what its SQL step names in `used`.
  ScannedJob scan(const std::string& path, QvResourceList* job, QvResourceList* used);

  QvImpactAnalysis* store() { return m_store.get(); }
  Released<QvResourceList> newList() { return Released<QvResourceList>(m_store->createResourceList()); }

private:
  Released<QvImpactAnalysis> m_store;
  Released<QvResourceManager> m_manager;
};

// Names a file that is no step that is known: a hint, or, where the user is strict, a failure.
void reportUnknownStep(Host& host, const std::string& file, const std::string& root, bool strict);
void addStrictFlag(CLI::App& command, bool& strict);

// Says that what was given holds no job files: a hint, or, where the user wants that, a failure.
void reportEmptiness(Host& host, bool fails);
void addFailIfEmptyFlag(CLI::App& command, bool& fails);
