// Lineage of job files written as XML, without repository definitions and with many: each file's place is looked for in
// all of their folders.
//   build/benchmark/bin/bench_definitions_export NAME [JOBS [DEFINITIONS]]
// "with definitions" is a process that has looked at them before; "with unread definitions" is one that has not.
#include "bench.h"

#include "qvreposres/qvlineage.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

constexpr int tablesOfEach = 6;

QvbString textOf(const std::string& text) { return QvbString(std::string_view(text)); }

// A folder with the job files, every other one of them in the vault of a definition, and one with the definitions.
class Files {
public:
  Files(int jobCount, int definitions, bool mustSettle) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvbench.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    m_folder = pattern;
    for (int i = 0; i < jobCount; ++i) {
      const auto folder = vault(i % 2 == 0 ? i % definitions : definitions) + "/batch_jobs";
      std::filesystem::create_directories(folder);
      jobs.push_back(folder + "/load_" + std::to_string(i) + ".djf");
      std::ofstream(jobs.back()) << "<ProcessJob/>\n";
    }
    std::filesystem::create_directories(definitionFolder());
    for (int i = 0; i < definitions; ++i)
      std::ofstream(definitionFolder() + "/definition_" + std::to_string(i) + ".rcf")
          << "<VaultRepositoryInfo Name=\"Definition " << i
          << R"(" RepositoryType="Vault" IsActive="true"><VaultPath>)" << vault(i)
          << "</VaultPath><UnifiedRepositoryType>File</UnifiedRepositoryType></VaultRepositoryInfo>\n";
    // What changed within the last 3 s the library reads at every look.
    if (mustSettle)
      std::this_thread::sleep_for(std::chrono::milliseconds(3'200));
  }
  ~Files() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  std::string definitionFolder() const { return m_folder + "/definitions"; }

  std::vector<std::string> jobs;

private:
  std::string vault(int number) const { return m_folder + "/vault_" + std::to_string(number); }

  std::string m_folder;
};

Released<QvImpactAnalysis> storeOf(const std::vector<std::string>& jobs) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const Released<QvResourceList> used(store->createResourceList());
    for (std::size_t j = 0; j < tablesOfEach; ++j) {
      const QvbString table = textOf("table_" + std::to_string((i * 5 + j * 101) % (jobs.size() * 3)));
      QvbString identity;
      manager->generateTableDataSourceResourceId("Warehouse", "", "", "dw", table, &identity);
      used->addRow();
      used->setLastRowElement(0, Released<QvResource>(store->createResource(table, "Table", identity)).get());
    }
    const Released<QvResource> job(store->createResource("job", "ProcessJob", textOf(jobs[i])));
    store->addDependentResources(job.get(), used.get());
  }
  return store;
}

int numberOf(const Bench& run, std::size_t word, int usual) {
  if (run.isShort)
    return 10;
  return word < run.words.size() ? std::stoi(run.words[word]) : usual;
}

void exportJobs(Bench& run, bool hasDefinitions, bool areRead) {
  const Files files(numberOf(run, 0, 1'000), numberOf(run, 1, 1'000), !run.isShort);
  const auto store = storeOf(files.jobs);
  if (hasDefinitions)
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", textOf(files.definitionFolder()));
  if (areRead) {
    const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
    const Released<QvReposConfiguration> first(manager->getConfigurationByName("Definition 0"));
    if (!first)
      throw std::runtime_error("no definitions");
  }
  QvbString xml;
  run.measure([&] {
    if (!store->getLineageAsString(&xml, nullptr, true))
      throw std::runtime_error("no lineage");
  });
  std::size_t models = 0;
  constexpr std::string_view model = "<RelationshipModel>";
  for (auto at = xml.find(model); at >= 0; at = xml.find(model, at + 1))
    ++models;
  run.result = std::to_string(models) + " models";
}

} // namespace

int main(int count, char** words) {
  return bench(count, words,
               {{"with definitions", [](Bench& run) { exportJobs(run, true, true); }},
                {"with unread definitions", [](Bench& run) { exportJobs(run, true, false); }},
                {"without definitions", [](Bench& run) { exportJobs(run, false, false); }}});
}
