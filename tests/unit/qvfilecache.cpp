#include "qvreposres/qvfilecache.h"

#include "qvfilecacheimpl.h"
#include "qvfilecachesingleton.h"
#include "support/allocations.h"
#include "support/descriptors.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
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

// Takes records and keeps none.
class QuietSink final : public QvLogSink {
  void record(const QvLogRecord&) override {}
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

namespace {

// A temporary folder of the test's own, and no sink: what is not enabled is not formatted.
class FileCacheMemory : public testing::Test {
protected:
  FileCacheMemory() {
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    // what is filled on first use, for the life of the process, is no leak
    for (int i = 0; i < 2; ++i) {
      getFileCache();
      qvFileCacheShutdown();
    }
  }
  ~FileCacheMemory() override {
    qvFileCacheShutdown();
    m_before ? ::setenv("TMPDIR", m_before->c_str(), 1) : ::unsetenv("TMPDIR");
  }
  // Nothing is left of a cache that could not be made, and nothing stays of one that was, once it has ended.
  void expectNothingLeftAfter(const std::function<bool()>& makeCache) {
    const auto descriptors = openDescriptors();
    bool made = false;
    long before = Allocations::alive, after = 0;
    Allocations::failEach(
        [&] {
          made = makeCache();
          if (made)
            qvFileCacheShutdown();
        },
        [&](long n) {
          after = Allocations::alive;
          EXPECT_EQ(after, before) << "allocation " << n;
          EXPECT_TRUE(std::filesystem::is_empty(temporary.path())) << "allocation " << n;
          EXPECT_EQ(openDescriptors(), descriptors) << "allocation " << n;
          before = Allocations::alive;
        });
    EXPECT_TRUE(made);
    EXPECT_NE(getFileCache(), nullptr);
  }

  TempDir temporary;

private:
  std::optional<std::string> m_before;
};

} // namespace

TEST_F(FileCacheMemory, LeavesNothingWhenItIsShortAtStartup) {
  int result = 0;
  expectNothingLeftAfter([&] {
    void* out = &result;
    result = qvFileCacheStartup(nullptr, &out);
    return result == 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(FileCacheMemory, LeavesNothingWhenItIsShortForTheDefaultCache) {
  expectNothingLeftAfter([] { return getFileCache() != nullptr; });
}

TEST_F(FileCacheMemory, LeavesNothingWhenItIsShortAtEveryLogLevel) {
  qvlogSetSink(std::make_shared<QuietSink>());
  expectNothingLeftAfter([] { return getFileCache() != nullptr; });
  qvlogSetSink(nullptr);
}

TEST_F(FileCacheMemory, IsNotNeededToFindACacheOrToEndIt) {
  HostCache host;
  ASSERT_EQ(setFileCacheManager(&host), 0);
  void* out = &host;
  Allocations::left = 0;
  FileAccessCache* const found = getFileCache();
  const int started = qvFileCacheStartup(nullptr, &out);
  qvFileCacheShutdown();
  Allocations::left = -1;
  EXPECT_EQ(found, &host);
  EXPECT_EQ(started, 0);
  EXPECT_EQ(host.released, 1);
}

namespace {

// Holds the registry's lock from its making until it is let go.
class BusyRegistry {
public:
  BusyRegistry() { m_entered.wait(); }
  ~BusyRegistry() { m_leave.count_down(); }
  BusyRegistry(const BusyRegistry&) = delete;
  BusyRegistry& operator=(const BusyRegistry&) = delete;

private:
  class Slow final : public QvbAutoSingleton {
  public:
    explicit Slow(BusyRegistry* owner) : m_owner(owner) {}
    const char* getId() override { return "test.slow"; }
    void* createObject() override {
      m_owner->m_entered.count_down();
      m_owner->m_leave.wait();
      return nullptr;
    }
    void deleteObject(void*) override {}

  private:
    BusyRegistry* m_owner;
  };

  std::latch m_entered{1};
  std::latch m_leave{1};
  std::jthread m_maker{[this] { Slow(this).initialize(nullptr); }};
};

} // namespace

// Somebody else may be making or ending an object for as long as it takes.
TEST_F(FileCacheHolder, IsFoundWithoutTheRegistrysLock) {
  setFileCacheManager(&x);
  logged();
  const BusyRegistry busy;
  EXPECT_EQ(getFileCache(), &x);
  void* out = &x;
  EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
  EXPECT_THAT(log.lines(), ElementsAre(idLine, line(with("getCache: Returning ", &x)), idLine));
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

TEST(MissingCopies, HaveAReason) {
  const TempDir folder;
  const struct {
    std::string name;
    int result;
    const char* reason;
  } cases[] = {
      {folder / "gone", NP_FIO_ERROR, "no such file, or it cannot be read"},
      {folder / "gone", NP_FIO_ACCESS, np_fio_errdesc(NP_FIO_ACCESS)},
      {"http://host/job", NP_FIO_NOT_FOUND, np_fio_errdesc(NP_FIO_NOT_FOUND)},
      {folder.path().string(), NP_FIO_ERROR, "a folder, where a file is due"},
      {"ftp://host/file", NP_FIO_OK, "give a path, or a URI of file, http or https"},
  };
  for (const auto& [name, result, expected] : cases) {
    QvbString reason;
    EXPECT_TRUE(getMissingCopyReason(text(name), result, &reason));
    EXPECT_EQ(reason, expected) << name;
  }
}

TEST(MissingCopies, HaveNoReasonWhenMemoryIsShort) {
  QvbString reason("mine");
  EXPECT_GE(withEverMoreMemory([&] { return getMissingCopyReason("/gone/from/here", 1, &reason); },
                               [&] { EXPECT_EQ(reason, "mine"); }),
            1);
}
