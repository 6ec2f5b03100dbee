// 10,000 job files of six tables to lineage XML, and their scan to a graph.
#include "bench.h"
#include "jobfiles.h"

namespace {

template<class Work>
void run(Bench& run, const Work& work) {
  const JobFolder folder;
  fill(folder, run.isShort ? 40 : 10'000);
  run.measure([&] { run.result = std::to_string(work(folder.path)) + " jobs"; });
}

auto lineageBy(unsigned threads) {
  return [threads](Bench& bench) {
    run(bench, [&](const std::string& path) { return lineageOf(path, threads); });
  };
}

auto graphBy(unsigned threads) {
  return [threads](Bench& bench) {
    run(bench, [&](const std::string& path) {
      qvlineagegraph::ScanOptions options;
      options.threads = threads;
      return qvlineagegraph::scan(std::vector{path}, options)->counts().jobs;
    });
  };
}

} // namespace

int main(int count, char** words) {
  return bench(count, words,
               {
                   {"library", lineageBy(2)},
                   {"library on one thread", lineageBy(1)},
                   {"graph", graphBy(2)},
                   {"graph on one thread", graphBy(1)},
#ifdef QV_WITH_LIBXML2
                   {"libxml2", [](Bench& bench) { run(bench, namesOf); }},
#endif
               });
}
