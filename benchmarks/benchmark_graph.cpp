// Costs of the lineage graph: scanning 10,000 job files by one thread and by several, and a selection in a saved graph of
// a million edges, loading included.
//   build/benchmark/bin/benchmark_graph
#include "qvlineagegraph/json.h"
#include "qvlineagegraph/scan.h"
#include "qvlineagegraph/select.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <sys/resource.h>

using namespace qvlineagegraph;
namespace fs = std::filesystem;

namespace {

// A folder for the whole run, gone at its end.
class Folder {
public:
  Folder() {
    std::string pattern = (fs::temp_directory_path() / "qvbench.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder");
    m_path = pattern;
  }
  ~Folder() { fs::remove_all(m_path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const fs::path& path() const { return m_path; }

private:
  fs::path m_path;
};

std::string table(std::size_t number) {
  return "schema_" + std::to_string(number % 20) + ".table_" + std::to_string(number);
}

void writeJob(const fs::path& path, std::size_t number) {
  std::ofstream out(path);
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SQLCreateTableSelect version=\"1\">\n"
      << "  <DatabaseConnectionObject Name=\"Warehouse\" DbDACType=\"ODBC\"/>\n  <Create TargetName=\""
      << table(number) << "\"/>\n  <Query>\n    <From>\n";
  for (std::size_t i = 1; i <= 5; ++i)
    out << "      <SourceTable Name=\"s" << i << "\" PathURI=\"qvd:///Warehouse?type=ODBC&amp;schema=schema_"
        << (number * i + i) % 20 << "&amp;table=table_" << (number * i + i) % 10'000 << "\"/>\n";
  out << "    </From>\n    <Columns>\n";
  for (std::size_t i = 0; i < 20; ++i)
    out << "      <Column Name=\"column_" << i << "\" Expression=\"s" << i % 5 + 1 << ".column_" << i
        << "\"/>\n";
  out << "    </Columns>\n  </Query>\n</SQLCreateTableSelect>\n";
}

const fs::path& tenThousandJobs() {
  static const Folder folder;
  static const bool isFilled = [] {
    for (std::size_t i = 0; i < 10'000; ++i) {
      const fs::path below = folder.path() / ("folder_" + std::to_string(i % 50));
      fs::create_directories(below);
      writeJob(below / ("job_" + std::to_string(i) + ".djf"), i);
    }
    return true;
  }();
  benchmark::DoNotOptimize(isFilled);
  return folder.path();
}

void scanFiles(benchmark::State& state) {
  const std::vector<std::string> paths{tenThousandJobs().string()};
  ScanOptions options;
  options.threads = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    auto graph = scan(paths, options);
    benchmark::DoNotOptimize(graph);
  }
  state.SetItemsProcessed(state.iterations() * 10'000);
}
BENCHMARK(scanFiles)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3)
    ->Repetitions(5);

constexpr std::size_t millionEdges = 1'000'000;

Graph largeGraph() {
  constexpr std::size_t readsOfAJob = 4;
  GraphBuilder builder;
  const auto source = builder.add({.type = NodeType::DataSource, .name = "Warehouse"});
  const auto tableNode = [&](std::size_t number) {
    const std::string name = "Warehouse." + table(number);
    const std::string identity =
        "<morvaxeldocument class=\"tableresource\" version=\"1\"><resource><tabledatasource "
        "dsn=\"Warehouse\" dsntype=\"\" schema=\"schema_" +
        std::to_string(number % 20) + "\" table=\"table_" + std::to_string(number) +
        "\"/></resource></morvaxeldocument>";
    return builder.add({.type = NodeType::Table, .name = name, .identity = identity, .source = source});
  };
  for (std::size_t i = 0; i < millionEdges / (readsOfAJob + 1); ++i) {
    const std::string name = "folder_" + std::to_string(i % 500) + "/job_" + std::to_string(i);
    const std::string file = "/srv/repository/" + name + ".djf";
    const auto job = builder.add(
        {.type = NodeType::Job, .name = name, .identity = file, .file = file, .kind = "ProcessJob"});
    builder.addEdge({job, tableNode(i), Access::Write, false});
    for (std::size_t read = 1; read <= readsOfAJob; ++read)
      builder.addEdge({tableNode(i - i % 100 + (i * read + read) % 100), job, Access::Read, false});
  }
  return builder.build();
}

const std::string& savedGraph() {
  static const Folder folder;
  static const std::string path = [] {
    const std::string name = folder.path() / "graph.json";
    const Graph graph = largeGraph();
    std::string text;
    writeJson(View(graph), text);
    std::ofstream(name, std::ios::binary) << text;
    return name;
  }();
  return path;
}

long kilobytesAtMost() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

void writeSaved(benchmark::State& state) {
  const Graph graph = largeGraph();
  for (auto _ : state) {
    std::string text;
    writeJson(View(graph), text);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(writeSaved)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);

// With QV_SAVED_GRAPH in the environment that file is read and none is made, so that the highest memory use is that of
// the selection: QV_SAVED_GRAPH=graph.json benchmark_graph --benchmark_filter=selectInSaved
void selectInSaved(benchmark::State& state) {
  const char* given = std::getenv("QV_SAVED_GRAPH");
  const std::string path = given ? given : savedGraph();
  std::size_t edges = 0;
  for (auto _ : state) {
    const auto graph = readJsonFile(path);
    if (!graph) {
      state.SkipWithError("the saved graph cannot be read");
      return;
    }
    edges = graph->edges().size();
    const View view(*graph);
    auto selected = select(view, {{"3+table_150099+3"}, {}});
    benchmark::DoNotOptimize(selected);
  }
  state.counters["edges"] = static_cast<double>(edges);
  state.counters["bytesAnEdge"] = static_cast<double>(kilobytesAtMost()) * 1024 / static_cast<double>(edges);
}
BENCHMARK(selectInSaved)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1)->Repetitions(5);

} // namespace
