// Fresh hits in the file cache: one URI parse, a map lookup, a user lookup and a clock, by hand and by the library.
//   bench_cache_hit NAME [USERS]     so many users have been let through (1), and the last of them asks
#include "bench.h"
#include "sourcefiles.h"

#include "qvreposres/qvfilecache.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvuri.h"

#include <map>
#include <mutex>
#include <unordered_set>

namespace {

std::vector<ReleasedSubject> usersOf(const Bench& run) {
  const int count = run.words.empty() ? 1 : std::stoi(run.words.front());
  std::vector<ReleasedSubject> users;
  for (int i = 0; i < count; ++i)
    users.emplace_back(qvbSubjectCreate(("user" + std::to_string(i)).c_str(), QvbString()));
  return users;
}

// Asks for every name by turns, so often that the clock can tell.
template<typename Get>
void hit(Bench& run, const std::vector<QvbString>& names, const Get& get) {
  const int rounds = run.isShort ? 1 : 4'000;
  int hits = 0;
  run.measure([&] {
    for (int round = 0; round < rounds; ++round)
      for (const QvbString& name : names)
        hits += get(name) ? 1 : 0;
  });
  run.result = std::to_string(hits) + " hits";
}

void byLibrary(Bench& run) {
  const SourceFiles sources;
  const auto users = usersOf(run);
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "2000000000");
  FileAccessCache* const cache = getFileCache();
  QvbString local, error;
  for (const QvbString& name : sources.uris)
    for (const ReleasedSubject& user : users)
      cache->getCacheFilename(user.get(), name, &local, &error);
  hit(run, sources.uris, [&](const QvbString& name) {
    return cache->getCacheFilename(users.back().get(), name, &local, &error) == 0 && !local.isEmpty();
  });
  qvFileCacheShutdown();
}

struct Copy {
  QvbString local;
  std::chrono::system_clock::time_point refreshed;
  std::unordered_set<QvbString, QvbHashIgnoreCase, QvbEqualIgnoreCase> users;
};

QvbString keyOf(const QvbString& name) {
  return Released<QvURI>(getURIFromURIString(name))->getNormalizedString();
}

void byHand(Bench& run) {
  const SourceFiles sources;
  const auto users = usersOf(run);
  std::map<QvbString, Copy> copies;
  std::mutex mutex;
  for (const QvbString& name : sources.uris) {
    Copy& copy = copies[keyOf(name)];
    copy = {"/a/local/file", std::chrono::system_clock::now(), {}};
    for (const ReleasedSubject& user : users) {
      QvbSubjectInfoParm info;
      qvbSubjectInfo(user.get(), &info, nullptr);
      copy.users.insert(info.userId);
    }
  }
  QvbString local;
  hit(run, sources.uris, [&](const QvbString& name) {
    const QvbString key = keyOf(name);
    const std::lock_guard guard(mutex);
    const auto found = copies.find(key);
    QvbSubjectInfoParm info;
    if (found == copies.end() ||
        std::chrono::system_clock::now() - found->second.refreshed > std::chrono::hours(500) ||
        !qvbSubjectInfo(users.back().get(), &info, nullptr) || !found->second.users.contains(info.userId))
      return false;
    local = found->second.local;
    return true;
  });
}

} // namespace

int main(int count, char** words) {
  return bench(count, words, {{"library", byLibrary}, {"by hand", byHand}});
}
