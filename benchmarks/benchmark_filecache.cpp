// A fresh hit in the file cache beside a lookup written by hand that does the same work.
#include "qvreposres/qvfilecache.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvuri.h"
#include "qvxlog/qvxlog.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int nameCount = 64;

ReleasedSubject makeSubject() { return ReleasedSubject(qvbSubjectCreate("somebody", QvbString())); }

// Files with names of a usual length, gone at the end.
class Sources {
public:
  Sources() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvbenchmark.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    m_folder = pattern;
    for (int i = 0; i < nameCount; ++i) {
      const std::string path = m_folder + "/customers_" + std::to_string(i) + ".job";
      std::ofstream(path) << "<ProcessJob/>\n";
      names.emplace_back(("file://" + path).c_str());
    }
  }
  ~Sources() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  Sources(const Sources&) = delete;
  Sources& operator=(const Sources&) = delete;

  std::vector<QvbString> names;

private:
  std::string m_folder;
};

void freshHit(benchmark::State& state) {
  const Sources sources;
  const ReleasedSubject subject = makeSubject();
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "2000000000");
  FileAccessCache* const cache = getFileCache();
  QvbString local, error;
  const auto get = [&](const QvbString& name) {
    if (cache->getCacheFilename(subject.get(), name, &local, &error) != 0)
      state.SkipWithError("no local copy");
    benchmark::DoNotOptimize(local);
  };
  for (const QvbString& name : sources.names)
    get(name);
  std::size_t i = 0;
  for (auto _ : state)
    get(sources.names[i++ % nameCount]);
  qvFileCacheShutdown();
}

struct Copy {
  QvbString local;
  std::chrono::system_clock::time_point refreshed;
  std::vector<QvbString> users;
};

void lookupByHand(benchmark::State& state) {
  const Sources sources;
  const ReleasedSubject subject = makeSubject();
  std::map<QvbString, Copy> copies;
  std::mutex mutex;
  const auto keyOf = [](const QvbString& name) {
    QvURI* const uri = getURIFromURIString(name);
    QvbString key = uri->getNormalizedString();
    uri->release();
    return key;
  };
  for (const QvbString& name : sources.names)
    copies[keyOf(name)] = {"/a/local/file", std::chrono::system_clock::now(), {"somebody"}};
  QvbString local;
  std::size_t i = 0;
  for (auto _ : state) {
    const QvbString key = keyOf(sources.names[i++ % nameCount]);
    const std::lock_guard guard(mutex);
    const Copy& copy = copies.at(key);
    QvbSubjectInfoParm info;
    const bool isUsable = std::chrono::system_clock::now() - copy.refreshed < std::chrono::hours(500) &&
                          qvbSubjectInfo(subject.get(), &info, nullptr) &&
                          std::ranges::any_of(copy.users, [&](const QvbString& user) {
                            return user.compare(info.userId, true) == 0;
                          });
    if (!isUsable)
      state.SkipWithError("no local copy");
    local = copy.local;
    benchmark::DoNotOptimize(local);
  }
}

// As freshHit, by the last of so many users.
void freshHitAmongUsers(benchmark::State& state) {
  const Sources sources;
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "2000000000");
  FileAccessCache* const cache = getFileCache();
  QvbString local, error;
  std::vector<ReleasedSubject> users;
  for (int i = 0; i < state.range(0); ++i) {
    users.emplace_back(qvbSubjectCreate(("user" + std::to_string(i)).c_str(), QvbString()));
    cache->getCacheFilename(users.back().get(), sources.names[0], &local, &error);
  }
  for (auto _ : state)
    if (cache->getCacheFilename(users.back().get(), sources.names[0], &local, &error) != 0)
      state.SkipWithError("no local copy");
  qvFileCacheShutdown();
}

// A small file into a folder that is emptied after each round, outside the measure.
void firstFetch(benchmark::State& state) {
  const Sources sources;
  const ReleasedSubject subject = makeSubject();
  FileAccessCache* const cache = getFileCache();
  QvbString local, error;
  for (auto _ : state) {
    for (const QvbString& name : sources.names)
      if (cache->getCacheFilename(subject.get(), name, &local, &error) != 0)
        state.SkipWithError("no local copy");
    state.PauseTiming();
    cache->flush(false);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * nameCount);
  qvFileCacheShutdown();
}

// The same by std::filesystem, whose copies are in nobody's way while they are not whole.
void copyByHand(benchmark::State& state) {
  const Sources sources;
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "qvbenchmark.copies";
  std::filesystem::create_directory(folder);
  for (auto _ : state) {
    int number = 0;
    for (const QvbString& name : sources.names)
      std::filesystem::copy_file(name.asCstr() + std::string_view("file://").size(),
                                 folder / std::to_string(number++));
    state.PauseTiming();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * nameCount);
  std::filesystem::remove_all(folder);
}

} // namespace

BENCHMARK(lookupByHand);
BENCHMARK(freshHit);
BENCHMARK(freshHitAmongUsers)->Arg(1)->Arg(1000);
BENCHMARK(copyByHand);
BENCHMARK(firstFetch);
