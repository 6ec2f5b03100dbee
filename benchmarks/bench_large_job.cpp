// One job file of 107 MB with 1,100,000 tables to lineage XML.
#include "bench.h"
#include "jobfiles.h"

namespace {

template<class Work>
void run(Bench& run, const Work& work) {
  const JobFolder folder;
  std::ofstream(folder.path + "/large.djf") << jobText(0, run.isShort ? 200 : 1'100'000, 20);
  run.measure([&] { run.result = std::to_string(work(folder.path)) + " jobs"; });
}

} // namespace

int main(int count, char** words) {
  return bench(
      count, words,
      {
          {"library",
           [](Bench& bench) { run(bench, [](const std::string& path) { return lineageOf(path, 1); }); }},
#ifdef QV_WITH_LIBXML2
          {"libxml2", [](Bench& bench) { run(bench, namesOf); }},
#endif
      });
}
