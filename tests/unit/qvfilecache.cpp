#include "qvreposres/qvfilecache.h"

#include "qvfilecacheimpl.h"
#include "qvfilecachesingleton.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// A host's own cache, which outlives its release().
class HostCache final : public FileAccessCacheManager {
public:
  int getCacheFilename(ASSubject*, const QvbString&, QvbString*, QvbString*) override { return 0; }
  int isModified(ASSubject*, const QvbString&, bool*, QvbString*) override { return 0; }
  int getModifiedDate(ASSubject*, const QvbString&, QvbDate*, QvbString*) override { return 0; }
  bool flush(bool) override { return true; }
  void release() override {
    ++released;
    thenRelease();
  }
  void setSourceProvider(FileAccessCacheSourceProvider*) override {}

  int released = 0;
  std::function<void()> thenRelease = [] {};
};

const LogLine idLine{"QV.FileAccessCache.Singleton", 2, "src/qvfilecache", "getId: Returning id"};

LogLine line(const std::string& text) { return {idLine.category, idLine.level, idLine.source, text}; }

std::string with(const std::string& text, const void* cache) {
  std::ostringstream out;
  out << text;
  cache ? out << "0x" << cache : out << "0x(nil)";
  return out.str();
}

class FileCacheHolder : public testing::Test {
protected:
  ~FileCacheHolder() override { qvFileCacheShutdown(); }

  // What the holder logged since the last call, without the lines about the identifier.
  std::vector<LogLine> logged() {
    auto lines = log.lines(idLine.category);
    std::erase(lines, idLine);
    log.clear();
    return lines;
  }

  HostCache x;
  HostCache y;
  LogCapture log;
};

} // namespace

TEST_F(FileCacheHolder, HandsOutTheHostsCache) {
  EXPECT_EQ(setFileCacheManager(&x), 0);
  EXPECT_THAT(logged(), ElementsAre(line(with("squirrelCache: Setting ", &x))));
  EXPECT_EQ(getFileCache(), &x);
  EXPECT_THAT(logged(), ElementsAre(line(with("getCache: Returning ", &x))));
  EXPECT_EQ(getFileCache(), &x);
  EXPECT_EQ(x.released, 0);
}

TEST_F(FileCacheHolder, ReleasesTheFormerCacheBeforeItSetsAnother) {
  setFileCacheManager(&x);
  logged();
  EXPECT_EQ(setFileCacheManager(&y), 0);
  EXPECT_THAT(logged(), ElementsAre(line(with("deleteObject: Tossing cache ", &x)),
                                    line(with("squirrelCache: Setting ", &y))));
  EXPECT_EQ(x.released, 1);
  EXPECT_EQ(y.released, 0);
  EXPECT_EQ(getFileCache(), &y);
}

TEST_F(FileCacheHolder, ReleasesItsCacheAtShutdownOnce) {
  setFileCacheManager(&x);
  logged();
  qvFileCacheShutdown();
  EXPECT_THAT(logged(), ElementsAre(line(with("deleteObject: Tossing cache ", &x))));
  EXPECT_EQ(x.released, 1);
  qvFileCacheShutdown();
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_EQ(x.released, 1);
}

TEST_F(FileCacheHolder, TakesACacheAgainAfterShutdown) {
  setFileCacheManager(&x);
  qvFileCacheShutdown();
  EXPECT_EQ(setFileCacheManager(&y), 0);
  EXPECT_EQ(getFileCache(), &y);
}

TEST_F(FileCacheHolder, FindsTheHostsCacheWhenItStarts) {
  setFileCacheManager(&x);
  logged();
  void* out = &x;
  EXPECT_EQ(qvFileCacheStartup(&y, &out), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_EQ(getFileCache(), &x);
}

TEST_F(FileCacheHolder, LeavesACacheToTheCallerWhenAnotherOneCameFirst) {
  HostCache first;
  setFileCacheManager(&first);
  first.thenRelease = [&] { EXPECT_EQ(setFileCacheManager(&x), 0); };
  logged();
  EXPECT_EQ(setFileCacheManager(&y), -2);
  EXPECT_THAT(logged(), ElementsAre(line(with("deleteObject: Tossing cache ", &first)),
                                    line(with("squirrelCache: Setting ", &x)),
                                    line(with("squirrelCache: Setting ", &y))));
  EXPECT_EQ(getFileCache(), &x);
  qvFileCacheShutdown();
  EXPECT_EQ(x.released, 1);
  EXPECT_EQ(y.released, 0);
}

TEST_F(FileCacheHolder, MakesADefaultCacheWhenThereIsNone) {
  FileAccessCache* const cache = getFileCache();
  ASSERT_NE(dynamic_cast<FileAccessCacheImpl*>(cache), nullptr);
  EXPECT_THAT(logged(), ElementsAre(line("createObject: No cache, creating default"),
                                    line(with("createObject: Creating ", cache)),
                                    line("createObject: Initializing lookup maps"),
                                    line(with("getCache: Returning ", cache))));
  EXPECT_EQ(getFileCache(), cache);
  EXPECT_THAT(logged(), ElementsAre(line(with("getCache: Returning ", cache))));
  qvFileCacheShutdown();
  EXPECT_THAT(logged(), ElementsAre(line(with("deleteObject: Tossing cache ", cache))));
}

TEST_F(FileCacheHolder, MakesTheDefaultCacheWhenItStarts) {
  void* out = &x;
  EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_THAT(logged(), SizeIs(3));
  EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_NE(getFileCache(), nullptr);
}

TEST_F(FileCacheHolder, SetsTheDefaultCacheForNone) {
  setFileCacheManager(&x);
  logged();
  EXPECT_EQ(setFileCacheManager(nullptr), 0);
  EXPECT_EQ(x.released, 1);
  auto lines = logged();
  EXPECT_NE(dynamic_cast<FileAccessCacheImpl*>(getFileCache()), nullptr);
  EXPECT_THAT(lines, ElementsAre(line(with("deleteObject: Tossing cache ", &x)),
                                 line(with("squirrelCache: Setting ", nullptr)),
                                 line("createObject: No cache, creating default"),
                                 line(with("createObject: Creating ", getFileCache())),
                                 line("createObject: Initializing lookup maps")));
}

TEST_F(FileCacheHolder, HasNoCacheWhenMemoryForTheDefaultOneIsShort) {
  const auto failed = ElementsAre(line("createObject: No cache, creating default"),
                                  line(with("createObject: Creating ", nullptr)),
                                  line("createObject: Initializing lookup maps"));
  Allocations::failingNothrowSize = sizeof(FileAccessCacheImpl);
  EXPECT_EQ(getFileCache(), nullptr);
  EXPECT_THAT(logged(), failed);

  void* out = &x;
  Allocations::failingNothrowSize = sizeof(FileAccessCacheImpl);
  EXPECT_EQ(qvFileCacheStartup(nullptr, &out), -1);
  EXPECT_EQ(out, nullptr);
  EXPECT_THAT(logged(), failed);

  setFileCacheManager(&x);
  Allocations::failingNothrowSize = sizeof(FileAccessCacheImpl);
  EXPECT_EQ(setFileCacheManager(nullptr), -1);
  EXPECT_EQ(x.released, 1);
  EXPECT_EQ(Allocations::failingNothrowSize, 0U);
}

TEST_F(FileCacheHolder, IsKnownToTheRegistryByItsName) {
  EXPECT_STREQ(QVB_FileAccessCacheSingleton().getId(), "QVB_FileAccessCache");
  EXPECT_THAT(log.lines(), ElementsAre(idLine));
}

TEST_F(FileCacheHolder, HasNothingToDeleteInANull) {
  QVB_FileAccessCacheSingleton().deleteObject(nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FileCacheHolder, HandsTheSameCacheToEveryThread) {
  setFileCacheManager(&x);
  std::vector<FileAccessCache*> found(8);
  std::vector<std::thread> threads;
  for (FileAccessCache*& cache : found)
    threads.emplace_back([&cache] { cache = getFileCache(); });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_THAT(found, testing::Each(&x));
}

TEST_F(FileCacheHolder, OwnsOneOfTheCachesThatManyThreadsSet) {
  std::vector<HostCache> caches(8);
  std::vector<int> results(caches.size());
  std::vector<std::thread> threads;
  threads.reserve(caches.size());
  for (std::size_t i = 0; i < caches.size(); ++i)
    threads.emplace_back([&, i] { results[i] = setFileCacheManager(&caches[i]); });
  for (std::thread& thread : threads)
    thread.join();
  qvFileCacheShutdown();
  for (std::size_t i = 0; i < caches.size(); ++i)
    EXPECT_EQ(caches[i].released, results[i] == 0 ? 1 : 0) << results[i];
}
