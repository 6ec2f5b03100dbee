// Reading job files one by one.
#pragma once

#include "host.h"

#include "qvlineagegraph/scan.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"

// How the reading of a job file went: the texts are both empty for a step that is known.
struct ScannedJob {
  std::string failure;     // the reason, with file, line and column where the file is malformed
  std::string unknownRoot; // the root element of a file that is no step that is known
  std::vector<std::string> unusableNames{}; // the element, the name and why
  Released<QvResourceList> used{};          // what its SQL step names
};

// Says which names hold what XML cannot carry: the library writes U+FFFD for it, so that names which differ in nothing else
// look the same.
void noteLossyNames(Host& host, const std::vector<std::string>& names);

// Says which files have one URI reference, and with it one identity: a backslash in a name counts as a slash.
void noteSharedNames(Host& host, const std::vector<std::string>& files);

// Reads job files; one for each thread.
class JobScanner {
public:
  JobScanner();

  ScannedJob scan(const std::string& path);
  // The job's own resource, alone in a list.
  Released<QvResourceList> jobOf(const std::string& path);

  QvImpactAnalysis* store() { return m_store.get(); }

private:
  Released<QvResourceList> newList();

  Released<QvImpactAnalysis> m_store;
  Released<QvResourceManager> m_manager;
};

// Names a file that is no step that is known: a hint, or, where the user is strict, a failure.
void reportUnknownStep(Host& host, const std::string& file, const std::string& root, bool strict);
void addStrictFlag(CLI::App& command, bool& strict);

// Names what stands in a file and cannot be used as a name, where the user is strict.
void reportUnusableNames(Host& host, const std::string& file, const std::vector<std::string>& names);

struct Outcome {
  std::size_t failed = 0;
  std::size_t notUnderstood = 0;
  std::size_t unusableNames = 0;
};

// What a command that reads job files says last, as a hint: "41 jobs; 1 file failed, 2 not understood; 1 name cannot be
// used, which `qvrepos audit` shows".
void noteOutcome(Host& host, const std::string& counts, const Outcome& outcome);

// Says that what was given holds no job files, or none that the patterns leave: a hint, or, where the user wants that, a
// failure.
void reportEmptiness(Host& host, bool fails, bool hasPatterns = false);
void addFailIfEmptyFlag(CLI::App& command, bool& fails);
