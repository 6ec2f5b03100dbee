// Finding one of a thousand definitions whose files have not changed since they were read. Nobody may take that for
// granted: each lookup looks at the folder and at every file.
#include "bench.h"
#include "definitionfolder.h"

#include <chrono>
#include <thread>
#include <unordered_map>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Size {
  explicit Size(const Bench& bench)
      : definitions(bench.isShort ? 20 : 1'000), lookups(bench.isShort ? 2 : 1'000) {}
  int definitions;
  int lookups;
};

// Until the library takes the files for settled: one that changed within the last 3 s it reads at every look.
void settle(const Bench& bench) {
  if (!bench.isShort)
    std::this_thread::sleep_for(std::chrono::milliseconds(3'200));
}

std::string resultOf(const Size& size, int found) {
  return std::to_string(found) + " of " + std::to_string(size.lookups) + " found";
}

void byLibrary(Bench& bench) {
  const Size size(bench);
  const DefinitionFolder folder(size.definitions);
  folder.choose();
  settle(bench);
  const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
  manager->refresh();
  int found = 0;
  bench.measure([&] {
    for (int i = 0; i < size.lookups; ++i) {
      const Released<QvReposConfiguration> definition(
          manager->getConfigurationByName(DefinitionFolder::nameOf(i * 7 % size.definitions).c_str()));
      found += definition != nullptr;
    }
  });
  bench.result = resultOf(size, found);
}

struct Entry {
  struct stat stat;
  std::string name;
};

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// Calls `visit` with the name and the state of each entry.
template<typename Visit>
void forEachEntry(const std::string& path, const Visit& visit) {
  DIR* const directory = opendir(path.c_str());
  if (!directory)
    throw std::runtime_error(path);
  while (const dirent* entry = readdir(directory)) {
    struct stat state {};
    if (entry->d_name[0] != '.' && fstatat(dirfd(directory), entry->d_name, &state, 0) == 0)
      visit(entry->d_name, state);
  }
  closedir(directory);
}

void byHand(Bench& bench) {
  const Size size(bench);
  const DefinitionFolder folder(size.definitions);
  std::vector<Entry> known; // in the order of the folder, which it keeps while nothing changes
  std::unordered_map<std::string, std::size_t> byName;
  forEachEntry(folder.path, [&](const char* name, const struct stat& state) {
    byName.emplace(std::string(name, std::string_view(name).size() - 4), known.size());
    known.push_back({state, name});
  });
  int found = 0;
  bench.measure([&] {
    for (int i = 0; i < size.lookups; ++i) {
      std::size_t unchanged = 0;
      forEachEntry(folder.path, [&](const char* name, const struct stat& state) {
        unchanged +=
            unchanged < known.size() && known[unchanged].name == name && isSame(known[unchanged].stat, state);
      });
      if (unchanged == known.size())
        found += byName.contains(DefinitionFolder::nameOf(i * 7 % size.definitions));
    }
  });
  bench.result = resultOf(size, found);
}

} // namespace

int main(int count, char** words) {
  return bench(count, words, {{"library", byLibrary}, {"by hand", byHand}});
}
