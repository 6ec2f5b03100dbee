#include "qvfilecacheimpl.h"

#include "qvfilecacheimpl_filesystem.h"
#include "qvfilecacheimpl_http.h"
#include "qvxbase/qvuri.h"
#include "support/faults.h"
#include "support/faultserver.h"
#include "support/filecachefixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

namespace fs = std::filesystem;

// What the locks are asked for; nobody waits for one in a program of one thread.
struct TestLocks {
  static inline int held = 0;
  static inline std::set<std::pair<int, int>> requests; // mode and wait
};

} // namespace

void qvLockGet(QvLock* lock, int mode, int wait) {
  if (!lock)
    return;
  ++TestLocks::held;
  TestLocks::requests.emplace(mode, wait);
}

void qvLockRelease(QvLock* lock) {
  if (lock)
    --TestLocks::held;
}

// --- Sources

TEST_F(FileCache, ChoosesASourceByScheme) {
  auto* const http = sourceOf("http://h/a");
  auto* const files = sourceOf("/a");
  EXPECT_NE(dynamic_cast<RemoteHttpFileProvider*>(http), nullptr);
  EXPECT_NE(dynamic_cast<RemoteFilesystemFileProvider*>(files), nullptr);
  struct Case {
    const char* name;
    FileAccessCacheSourceProvider* expected;
  };
  for (const auto& [name, expected] :
       {Case{"http://h/a", http}, Case{"https://h/a", http}, Case{"HTTPS://h/a", http},
        Case{"xhttpx://h/a", http}, Case{"filehttp:a", http}, Case{"file:///a", files}, Case{"File:a", files},
        Case{"myfiles:a", files}, Case{"relative/a", files}, Case{"C:\\jobs\\a", files}, Case{"", files},
        Case{"ftp://h/a", nullptr}, Case{"htt:p", nullptr}, Case{"qvr:///a", nullptr}})
    EXPECT_EQ(cache->getCacheSourceProviderForFileType(name), expected) << name;
}

TEST_F(FileCache, TellsWhichSourceItChose) {
  cache->getCacheSourceProviderForFileType("https://h/a");
  EXPECT_THAT(logged(),
              ElementsAre(line(1, "getCacheSourceProviderForFileType: scheme='https'"),
                          line(1, "getCacheSourceProviderForFileType: Using HTTP provider for https://h/a")));
  cache->getCacheSourceProviderForFileType("file:///a");
  EXPECT_THAT(logged(), ElementsAre(line(1, "getCacheSourceProviderForFileType: scheme='file'"),
                                    usesFiles("file:///a")));
  cache->getCacheSourceProviderForFileType("plain");
  EXPECT_THAT(logged(), ElementsAre(usesFiles("plain")));
}

TEST_F(FileCache, OwnsItsDefaultSource) {
  cache->setSourceProvider(&provider);
  EXPECT_THAT(logged(), ElementsAre(line(1, "Setting default cache source provider")));
  cache->setSourceProvider(&provider);
  EXPECT_EQ(provider.released, 0);
  RecordingProvider other;
  cache->setSourceProvider(&other);
  EXPECT_EQ(provider.released, 1);
  cache.reset();
  EXPECT_EQ(other.released, 1);
}

TEST_F(FileCache, ReleasesADefaultSourceBeforeItHasTheNext) {
  cache->setSourceProvider(&provider);
  RecordingProvider other;
  const FileAccessCacheEntry entry;
  FileAccessCacheSourceProvider* duringRelease = &provider;
  provider.whenCalled = [&] { duringRelease = cache->getCacheSourceProvider(&entry, "ftp://h/a"); };
  log.clear();
  cache->setSourceProvider(&other);
  EXPECT_EQ(duringRelease, nullptr);
  EXPECT_THAT(textsOf(log.lines()),
              ElementsAre("getCacheSourceProviderForFileType: scheme='ftp'", "The host's source is released",
                          "Setting default cache source provider"));
  cache.reset();
}

TEST_F(FileCache, AsksItsDefaultSourceForCopiesOnly) {
  cache->setSourceProvider(&provider);
  QvbDate date;
  isModified(source);
  EXPECT_EQ(cache->getModifiedDate(alice.get(), text(source), &date, &error), 0);
  EXPECT_THAT(provider.takeCalls(), IsEmpty());
  EXPECT_EQ(readFile(get(source).local), "provided");
  EXPECT_THAT(provider.takeCalls(), ElementsAre("updateLocalFileContent " + source));
}

// --- Whether the source has changed

TEST_F(FileCache, ComparesDatesToTellAChange) {
  get("file://" + source);
  log.clear();
  EXPECT_FALSE(isModified("file://" + source));
  EXPECT_THAT(logged(), ElementsAre(line(1, "getCacheSourceProviderForFileType: scheme='file'"),
                                    usesFiles("file://" + source),
                                    line(1, "isModifed: modified date returned 0 for file://" + source)));
  // the same file by another spelling
  EXPECT_FALSE(isModified("FILE://" + source));
  const auto lines = logged();
  EXPECT_EQ(lines.back(), line(1, "isModifed: modified date returned 0 for FILE://" + source));
  fs::last_write_time(source, fs::last_write_time(source) - std::chrono::hours(1));
  EXPECT_TRUE(isModified("file://" + source));
}

// Whatever the caller writes, the source hears one name for one file, and remembers what it knows under that.
TEST_F(FileCache, AsksForADateByTheNameOfTheCopy) {
  const ClosedPort closed;
  const std::string web = shown(sourceOf("http://h/"));
  const std::string spelled = "HTTP" + closed.url("/./jobs/../%6Cob").substr(4);
  const std::string normal = closed.url("/lob");
  ASSERT_EQ(str(Released<QvURI>(getURIFromURIString(text(spelled)))->getNormalizedString()), normal);
  const std::string asksFor = "getModifiedDate forcing cache ignore for: ";
  bool modified = false;
  QvbDate unread;
  log.clear();
  cache->isModified(alice.get(), text(spelled), &modified, &error);
  EXPECT_THAT(textsOf(log.lines()),
              AllOf(Contains(asksFor + normal), Contains("getCacheSourceProviderForFileType: Using HTTP "
                                                         "provider for " +
                                                         spelled)));
  log.clear();
  cache->getModifiedDate(alice.get(), text(spelled), &unread, &error);
  EXPECT_THAT(textsOf(log.lines()), Contains(asksFor + normal));
  EXPECT_EQ(logged().back(),
            line(1, "getModifiedDate: Retrieved NULL date for '" + spelled + "', provider " + web));
}

TEST_F(FileCache, TakesWhatItNeverCopiedForModified) { EXPECT_TRUE(isModified(source)); }

TEST_F(FileCache, TakesWhatHasNoDateForUnmodified) {
  bool modified = true;
  EXPECT_EQ(cache->isModified(alice.get(), text(missing), &modified, &error), 3);
  EXPECT_FALSE(modified);
  EXPECT_EQ(logged().back(), line(1, "isModifed: modified date returned 3 for " + missing));
}

TEST_F(FileCache, TakesWhatHasNoSourceForModified) {
  bool modified = false;
  EXPECT_EQ(cache->isModified(alice.get(), "ftp://h/a", &modified, &error), 0);
  EXPECT_TRUE(modified);
  EXPECT_EQ(logged().back(),
            line(5, "isModified: Error accessing provider for 'ftp://h/a', provider 0x(nil)"));
}

TEST_F(FileCache, NeverWritesTheModificationDate) {
  const QvbDate before = dateOf(2001);
  QvbDate date = before;
  EXPECT_EQ(cache->getModifiedDate(alice.get(), text(source), &date, &error), 0);
  EXPECT_EQ(date.compare(before), 0);
  const std::string files = fileSource();
  EXPECT_EQ(cache->getModifiedDate(alice.get(), text(missing), &date, &error), 4);
  EXPECT_EQ(date.compare(before), 0);
  EXPECT_EQ(logged().back(),
            line(1, "getModifiedDate: Retrieved NULL date for '" + missing + "', provider " + files));
  EXPECT_EQ(cache->getModifiedDate(alice.get(), "ftp://h/a", &date, &error), 0);
  EXPECT_EQ(date.compare(before), 0);
  EXPECT_EQ(logged().back(),
            line(5, "getModifiedDate: Error accessing provider for 'ftp://h/a', provider 0x(nil)"));
  EXPECT_EQ(cache->getModifiedDate(alice.get(), text(source), nullptr, nullptr), 0);
}

// --- The lock

TEST_F(FileCache, TakesNoLockForANameWithoutASource) {
  bool modified = false;
  TestLocks::requests.clear();
  EXPECT_EQ(cache->isModified(alice.get(), "ftp://h/a", &modified, &error), 0);
  EXPECT_EQ(cache->getModifiedDate(alice.get(), "ftp://h/a", nullptr, &error), 0);
  EXPECT_THAT(TestLocks::requests, IsEmpty());
}

TEST_F(FileCache, LogsTheKeyOfANameBeforeItTakesItsLock) {
  struct Sink final : QvLogSink {
    void record(const QvLogRecord& record) override {
      if (record.text.find("getCacheFilename") == 0)
        held.push_back(TestLocks::held);
    }
    std::vector<int> held;
  };
  const auto sink = std::make_shared<Sink>();
  qvlogSetSink(sink);
  get("file://" + source);
  EXPECT_THAT(sink->held, ElementsAre(0, 0)) << "entered, and using";
  qvlogSetSink(nullptr);
}

TEST_F(FileCache, HoldsItsLockWhileItAsksASource) {
  std::vector<int> held;
  provider.whenCalled = [&] { held.push_back(TestLocks::held); };
  const Faults watching([&](QvbFaultPoint point, const std::string& subject) {
    if (point == QvbFaultPoint::FileStat && subject == source)
      held.push_back(TestLocks::held);
    return 0;
  });
  const auto expectHeldDuring = [&](const char* operation, const auto& work) {
    held.clear();
    work();
    EXPECT_THAT(held, AllOf(Not(IsEmpty()), Each(1))) << operation;
    EXPECT_EQ(TestLocks::held, 0) << operation;
  };
  expectHeldDuring("first fetch", [&] { get(source); });
  expectHeldDuring("isModified", [&] { isModified(source); });
  expectHeldDuring("getModifiedDate",
                   [&] { cache->getModifiedDate(alice.get(), text(source), nullptr, &error); });
  cache->setSourceProvider(&provider);
  expectHeldDuring("refresh", [&] { get(source, bob.get()); });
  expectHeldDuring("flush", [&] { cache->flush(false); });
  expectHeldDuring("setSourceProvider", [&] { cache->setSourceProvider(nullptr); });
  EXPECT_EQ(TestLocks::requests, (std::set<std::pair<int, int>>{{0, 1}}));
}
