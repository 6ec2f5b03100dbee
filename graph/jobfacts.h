// What one job file says, read apart from all others.
#pragma once

#include "qvlineagegraph/graph.h"
#include "qvlineagegraph/scan.h"

#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"

#include <optional>
#include <string>
#include <vector>

namespace qvlineagegraph {

struct DataSourceFact {
  std::string name{};
  std::string type{}; // empty where it is not told
  std::string identity{};
};

struct TableFact {
  Access access = Access::Read;
  bool isBare = false;      // known by its name alone
  std::string dataSource{}; // of a bare name: that of the connection before it; may be empty
  std::string catalog{};
  std::string schema{};
  std::string table{};
  std::string identity{};
};

struct JobFacts {
  std::string failure{};      // why nothing could be read
  std::string unknownRoot{};  // the root element of what is no step
  std::optional<Graph> saved; // the graph that was in the file instead of a job
  std::string identity{};
  std::string kind{};
  std::vector<DataSourceFact> dataSources;
  std::vector<TableFact> tables;
  std::vector<std::string> unusableNames;
};

// Reads jobs, with a manager and a factory of its own: one for each thread.
class JobReader {
public:
  JobReader();

  // `input` is what a file of the path "-" holds.
  JobFacts read(const JobFile& file, const std::string& input);

private:
  void identify(const std::string& path, JobFacts& facts);

  Released<QvImpactAnalysis> m_lineage;
  Released<QvResourceManager> m_manager;
};

} // namespace qvlineagegraph
