// What one job file says, read apart from all others.
#pragma once

#include "qvlineagegraph/graph.h"
#include "qvlineagegraph/scan.h"

#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

struct DataSourceFact {
  std::string_view name{};
  std::string_view type{}; // empty where it is not told
  std::string_view identity{};
};

struct TableFact {
  Access access = Access::Read;
  bool isBare = false;           // known by its name alone
  std::string_view dataSource{}; // of a bare name: that of the connection before it; may be empty
  std::string_view catalog{};
  std::string_view schema{};
  std::string_view table{};
  std::string_view identity{};
};

// Where the texts of one job lie, those of most jobs in the object itself. One thread makes what another gives back: the
// fewer pieces change hands, the less a thread waits for the other's memory.
class FactsMemory {
public:
  // A copy that lives as long as the memory.
  std::string_view keep(std::string_view text) {
    if (text.empty())
      return {};
    auto* kept = static_cast<char*>(m_resource.allocate(text.size(), 1));
    std::memcpy(kept, text.data(), text.size());
    return {kept, text.size()};
  }

  std::pmr::memory_resource* resource() noexcept { return &m_resource; }

private:
  std::array<std::byte, 4096> m_firstBytes;
  std::pmr::monotonic_buffer_resource m_resource{m_firstBytes.data(), m_firstBytes.size()};
};

struct JobFacts {
  FactsMemory memory;
  std::string failure;        // why nothing could be read
  std::string unknownRoot;    // the root element of what is no step
  std::optional<Graph> saved; // the graph that was in the file instead of a job
  std::string_view identity{};
  std::string_view kind{};
  std::pmr::vector<DataSourceFact> dataSources{memory.resource()};
  std::pmr::vector<TableFact> tables{memory.resource()};
  std::vector<std::string> unusableNames;
};

// Reads jobs, with a manager and a factory of its own: one for each thread.
class JobReader {
public:
  JobReader();

  // `input` is what a file of the path "-" holds.
  void read(const JobFile& file, const std::string& input, JobFacts& facts);

private:
  // What stands in `content` instead of a file.
  void readText(const std::string& path, const std::string& content, JobFacts& facts);
  void identify(const std::string& path, JobFacts& facts);

  Released<QvImpactAnalysis> m_lineage;
  Released<QvResourceManager> m_manager;
};

} // namespace qvlineagegraph
