// Costs of the lineage store and of resource lists. They are meant to grow linearly: compare the time per item of one
// benchmark over its sizes in one run.
//   build/benchmark/bin/benchmark_lineage
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

constexpr std::int64_t dependenciesOfEach = 5;

QvbString tableIdentity(QvResourceManager& manager, std::int64_t number) {
  QvbString identity;
  manager.generateTableDataSourceResourceId("Warehouse", "", "", "dw",
                                            ("table_" + std::to_string(number)).c_str(), &identity);
  return identity;
}

// What a scan hands to the store: a resource and the list of those that it uses, every one unique.
struct Scanned {
  Released<QvResource> job;
  Released<QvResourceList> used;
};

std::vector<Scanned> scan(QvImpactAnalysis& store, QvResourceManager& manager, std::int64_t jobs) {
  std::vector<Scanned> scanned;
  for (std::int64_t i = 0; i < jobs; ++i) {
    const std::string path = "/srv/jobs/job_" + std::to_string(i) + ".djf";
    Scanned one{Released<QvResource>(store.createResource("job", "ArchitectJob", path.c_str())),
                Released<QvResourceList>(store.createResourceList())};
    for (std::int64_t j = 0; j < dependenciesOfEach; ++j) {
      const Released<QvResource> table(
          store.createResource("table", "Table", tableIdentity(manager, i * dependenciesOfEach + j)));
      one.used->addRow();
      one.used->setLastRowElement(0, table.get());
    }
    scanned.push_back(std::move(one));
  }
  return scanned;
}

void buildAndExport(benchmark::State& state) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  const Released<QvImpactAnalysis> source(getQvLineageAnalysis());
  for (auto _ : state) {
    state.PauseTiming();
    auto scanned = scan(*source, *manager, state.range(0));
    state.ResumeTiming();
    const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
    for (const auto& one : scanned)
      store->addDependentResources(one.job.get(), one.used.get());
    QvbString xml;
    store->getLineageAsString(&xml, nullptr, true);
    benchmark::DoNotOptimize(xml);
    state.PauseTiming();
    scanned.clear();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(buildAndExport)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);

void uniqueListOfResources(benchmark::State& state) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  const Released<QvImpactAnalysis> store(getQvLineageAnalysis());
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<Released<QvResource>> resources;
    for (std::int64_t i = 0; i < state.range(0); ++i)
      resources.emplace_back(store->createResource("table", "Table", tableIdentity(*manager, i)));
    state.ResumeTiming();
    const Released<QvResourceList> list(store->createResourceList());
    for (const auto& resource : resources) {
      if (!list->contains(resource.get())) {
        list->addRow();
        list->setLastRowElement(0, resource.get());
      }
    }
    state.PauseTiming();
    resources.clear();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(uniqueListOfResources)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3);

} // namespace
