// `qvrepos lineage` over 10,000 job files of six tables, as JSON and as XML. The tool lies beside this program.
#include "bench.h"
#include "jobfiles.h"

namespace {

auto lineageBy(const std::string& tool, const std::string& form) {
  return [=](Bench& bench) {
    const JobFolder folder;
    fill(folder, bench.isShort ? 40 : 10'000);
    const std::string command =
        "'" + tool + "' --quiet lineage " + form + " '" + folder.path + "' >/dev/null";
    bench.measure([&] {
      if (std::system(command.c_str()) != 0)
        throw std::runtime_error("failed: " + command);
    });
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    for (const timeval& spent : {usage.ru_utime, usage.ru_stime})
      bench.cpuSeconds += static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_usec) / 1e6;
  };
}

} // namespace

int main(int count, char** words) {
  const std::string tool = std::filesystem::path(words[0]).parent_path() / "qvrepos";
  return bench(count, words, {{"library", lineageBy(tool, "--json")}, {"XML", lineageBy(tool, "")}});
}
