#include "qvfilecacheimpl.h"

#include "support/allocations.h"
#include "support/faults.h"
#include "support/filecachefixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/stat.h>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

namespace fs = std::filesystem;

// --- Getting a local copy

TEST_F(FileCache, CopiesAFileTheFirstTimeItIsAskedFor) {
  const std::string files = fileSource();
  const Got got = get(source);
  EXPECT_EQ(got.result, 0);
  EXPECT_EQ(got.error, "");
  EXPECT_EQ(readFile(got.local), "first");
  EXPECT_EQ(fs::status(got.local).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::path(got.local).parent_path(), cacheFolder());
  EXPECT_THAT(fs::path(got.local).filename().string(), MatchesRegex(uuid));
  EXPECT_THAT(
      logged(),
      ElementsAre(line(1, "getCacheFilename entered for '" + source + "'"), usesFiles(source),
                  line(1, "addFileToCache entered for '" + source + "', provider " + files),
                  line(1, "setFileCacheModifiedDate: Creating new cache entry for " + source),
                  line(1, "setFileCacheModifiedDate: Added new cache entry: " + source + " , " + source),
                  usesFiles(source)));
}

TEST_F(FileCache, AsksNoSourceForAFreshCopy) {
  const Got first = get(source);
  log.clear();
  sources.write("source.txt", "second");
  EXPECT_EQ(get(source), first);
  EXPECT_EQ(readFile(first.local), "first");
  // no source has its say
  EXPECT_THAT(log.lines(), ElementsAre(line(1, "getCacheFilename entered for '" + source + "'"),
                                       comparesAges(TestClock::now), line(1, "Cache not updated yet...")));
}

TEST_F(FileCache, CopiesAgainOnceTheIntervalHasPassed) {
  struct Case {
    const char* interval;
    int stillFresh; // milliseconds
  };
  for (const auto& [interval, stillFresh] : {Case{"0", 0}, Case{"-1", 0}, Case{"1000", 1000}, Case{"1", 1}}) {
    remake(interval);
    sources.write("source.txt", "first");
    const Got first = get(source);
    const QvbDate refreshed = TestClock::now;
    sources.write("source.txt", "second");
    TestClock::pass(stillFresh);
    log.clear();
    EXPECT_EQ(get(source), first) << interval;
    EXPECT_EQ(readFile(first.local), "first") << interval;
    EXPECT_THAT(logged(), Contains(comparesAges(refreshed)));

    TestClock::pass(1);
    EXPECT_EQ(get(source), first) << interval;
    EXPECT_EQ(readFile(first.local), "second") << interval;
    EXPECT_THAT(logged(),
                AllOf(Contains(comparesAges(refreshed)), Not(Contains(line(1, "Cache not updated yet...")))));
    EXPECT_EQ(get(source), first) << interval;
    EXPECT_THAT(logged(), Contains(comparesAges(TestClock::now)));
  }
}

TEST_F(FileCache, TellsARefreshStepByStep) {
  remake("-1");
  get(source);
  QvbDate date;
  sourceOf(text(source))->getModifiedDate(nullptr, text(source), &date, nullptr, false);
  TestClock::pass(1);
  log.clear();
  get(source);
  const auto lines = logged();
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_EQ(lines[2], usesFiles(source));
  EXPECT_EQ(lines[3], line(2, "Cache modified date diff " + str(date.asString(false)) + " and " +
                                  str(date.asString(false))));
  EXPECT_EQ(lines[4], usesFiles(source));
}

TEST_F(FileCache, CopiesAgainWhatItNeverRefreshed) {
  cache->setFileCacheLocalName(text(source), "ignored");
  log.clear();
  const Got got = get(source);
  EXPECT_EQ(got.result, 0);
  EXPECT_EQ(readFile(got.local), "first");
  // no word about an interval
  EXPECT_THAT(logged(), ElementsAre(line(1, "getCacheFilename entered for '" + source + "'"),
                                    usesFiles(source), testing::_, usesFiles(source)));
}

TEST_F(FileCache, HasOneCopyOfAUriHoweverItIsSpelled) {
  const Got got = get("file://" + source);
  EXPECT_EQ(got.result, 0);
  EXPECT_EQ(readFile(got.local), "first");
  const auto lines = logged();
  EXPECT_EQ(lines[0], line(1, "getCacheFilename entered for 'file://" + source + "'"));
  EXPECT_EQ(lines[1], line(1, "getCacheFilename using 'file://" + source + "'"));
  EXPECT_EQ(lines[2], line(1, "getCacheSourceProviderForFileType: scheme='file'"));
  EXPECT_EQ(lines[3], usesFiles("file://" + source));
  EXPECT_EQ(get("FILE://" + sources.path().string() + "/./s%6Furce.txt"), got);
  EXPECT_EQ(logged()[1], line(1, "getCacheFilename using 'file://" + source + "'"));
  // a plain path is a name of its own
  EXPECT_NE(get(source).local, got.local);
}

TEST_F(FileCache, KeepsTheOldBytesForWhoeverHasTheFileOpen) {
  remake("-1");
  const Got got = get(source);
  std::ifstream reader(got.local);
  TestClock::pass(1);
  sources.write("source.txt", "second");
  get(source);
  std::string bytes;
  EXPECT_TRUE(std::getline(reader, bytes));
  EXPECT_EQ(bytes, "first");
  EXPECT_EQ(readFile(got.local), "second");
}

TEST_F(FileCache, RefreshesOnceForAnotherUser) {
  get(source);
  cache->setSourceProvider(&provider);
  EXPECT_EQ(get(source, bob.get()).result, 0);
  EXPECT_THAT(provider.takeCalls(),
              ElementsAre("getModifiedDate " + source + " anew", "updateLocalFileContent " + source));
  EXPECT_EQ(get(source, bob.get()).result, 0);
  EXPECT_EQ(get(source).result, 0);
  EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(FileCache, KnowsAUserInAnyCase) {
  get(source);
  cache->setSourceProvider(&provider);
  const ReleasedSubject shouting(qvbSubjectCreate("ALICE", QvbString()));
  EXPECT_EQ(get(source, shouting.get()).result, 0);
  EXPECT_THAT(provider.calls, IsEmpty());
}

// However many users the source has let through, one of them is found without a look at the others.
TEST_F(FileCache, FindsOneUserAmongMany) {
  FileAccessCacheEntry entry;
  std::vector<ReleasedSubject> subjects;
  for (int i = 0; i < 1000; ++i) {
    subjects.emplace_back(qvbSubjectCreate(text("user" + std::to_string(i)), QvbString()));
    ASSERT_TRUE(entry.addAuthorizedUser(subjects.back().get(), nullptr));
  }
  EXPECT_EQ(entry.authorizedUsers.size(), 1000U);
  for (const ReleasedSubject& subject : subjects)
    EXPECT_TRUE(entry.isUserAuthorized(subject.get(), nullptr));
  EXPECT_FALSE(entry.isUserAuthorized(alice.get(), nullptr));
  EXPECT_EQ(*entry.authorizedUsers.begin(), "user0");

  get(source);
  cache->setSourceProvider(&provider);
  for (const ReleasedSubject& subject : subjects)
    EXPECT_EQ(get(source, subject.get()).result, 0);
  provider.takeCalls();
  for (const ReleasedSubject& subject : subjects)
    EXPECT_EQ(get(source, subject.get()).result, 0);
  EXPECT_THAT(provider.calls, IsEmpty());
}

TEST_F(FileCache, RefreshesTwiceWhenTheCopyIsOldAndTheUserNew) {
  remake("-1");
  get(source);
  cache->setSourceProvider(&provider);
  provider.dateResult = 12;
  TestClock::pass(1);
  EXPECT_EQ(get(source, bob.get()).result, 12);
  EXPECT_THAT(provider.takeCalls(),
              ElementsAre("getModifiedDate " + source + " anew", "getModifiedDate " + source + " anew"));
}

TEST_F(FileCache, AsksTheSourceEveryTimeForSomebodyWithoutInformation) {
  get(source);
  cache->setSourceProvider(&provider);
  for (int i = 0; i < 2; ++i) {
    const Got got = get(source, nullptr);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.error, "There is no subject to give information about.");
    EXPECT_THAT(provider.takeCalls(), SizeIs(2));
  }
}

TEST_F(FileCache, HandsOutTheOldPathWhenARefreshFails) {
  const Got first = get(source);
  cache->setSourceProvider(&provider);
  provider.dateResult = 4;
  provider.error = "not yours";
  EXPECT_EQ(get(source, bob.get()), (Got{4, first.local, "not yours"}));
  EXPECT_EQ(readFile(first.local), "first");
}

TEST_F(FileCache, KeepsTheErrorOfACopyToItself) {
  const Got first = get(source);
  cache->setSourceProvider(&provider);
  provider.copyResult = 12;
  provider.copyError = "too busy";
  EXPECT_EQ(get(source, bob.get()), (Got{12, first.local, ""}));
  log.clear();
  EXPECT_EQ(cache->updateFileCacheContents(alice.get(), "name", nullptr), 1);
  FileAccessCacheEntry entry;
  EXPECT_EQ(cache->updateFileCacheContents(alice.get(), "name", &entry), 12);
  EXPECT_TRUE(entry.cacheUpdatedDate.isNull());
  EXPECT_FALSE(entry.isUserAuthorized(alice.get(), nullptr));
  EXPECT_THAT(logged(),
              ElementsAre(line(5, "Invalid cache entry for 'name'"),
                          line(5, "There was an error setting the cache file \"name\" contents from "
                                  "provider: too busy")));
}

TEST_F(FileCache, AgesAndGrantsWhatItCopied) {
  cache->setSourceProvider(&provider);
  FileAccessCacheEntry entry;
  entry.localFilename = text(sources / "copy");
  EXPECT_EQ(cache->updateFileCacheContents(alice.get(), "name", &entry), 0);
  EXPECT_EQ(provider.lastLocal, sources / "copy");
  EXPECT_EQ(sources.read("copy"), "provided");
  EXPECT_EQ(entry.cacheUpdatedDate.compare(TestClock::now), 0);
  EXPECT_TRUE(entry.isUserAuthorized(alice.get(), nullptr));
}

// --- First fetches that fail

TEST_F(FileCache, HasNoSourceForOtherSchemes) {
  EXPECT_EQ(get("ftp://host/a"), (Got{1, "", ""}));
  EXPECT_THAT(logged(), ElementsAre(line(1, "getCacheFilename entered for 'ftp://host/a'"),
                                    line(1, "getCacheFilename using 'ftp://host/a'"),
                                    line(1, "getCacheSourceProviderForFileType: scheme='ftp'"),
                                    line(1, "addFileToCache entered for 'ftp://host/a', provider 0x(nil)"),
                                    line(5, "Invalid provider on ftp://host/a:  0x(nil)")));
}

TEST_F(FileCache, HasNoEntryForAMissingFile) {
  const std::string files = fileSource();
  EXPECT_EQ(get(missing), (Got{1, "", ""}));
  EXPECT_EQ(logged().back(), line(5, "Provider exists failed for '" + missing + "', provider " + files));
  EXPECT_FALSE(cache->removeFileFromCache(text(missing)));
}

// What counts is that it exists and can be copied.
TEST_F(FileCache, CopiesAFileWhoseDateItDoesNotGet) {
  {
    int stats = 0;
    const Faults second([&](QvbFaultPoint point, const std::string& subject) {
      return point == QvbFaultPoint::FileStat && subject == source && ++stats == 2 ? EACCES : 0;
    });
    EXPECT_EQ(get(source).result, 0);
    EXPECT_GE(stats, 2);
  }
  EXPECT_EQ(readFile(get(source).local), "first");
  EXPECT_TRUE(isModified(source));
}

TEST_F(FileCache, AnswersWithAPathWhoseCopyFailedUntilTheIntervalHasPassed) {
  const std::string empty = sources.write("empty", "");
  const Got first = get(empty);
  EXPECT_EQ(first.result, 1);
  EXPECT_EQ(get(empty), first); // the user is not known before
  EXPECT_EQ(get(empty), (Got{0, first.local, ""}));
}

TEST_F(FileCache, NamesALocalFileWhoseFirstCopyFailed) {
  const std::string empty = sources.write("empty", "");
  const Got got = get(empty);
  EXPECT_EQ(got.result, 1);
  EXPECT_THAT(got.local, HasSubstr(cacheFolder()));
  const auto lines = logged();
  EXPECT_EQ(lines[lines.size() - 2],
            line(5, "There was an error setting the cache file \"" + empty + "\" contents from provider: "));
  EXPECT_EQ(lines.back(), line(5, "Error adding file to cache"));
}

TEST_F(FileCache, TellsThatMemoryForAnEntryIsShort) {
  Allocations::failingNothrowSize = sizeof(FileAccessCacheEntry);
  EXPECT_EQ(get(source), (Got{1, "", ""}));
  ASSERT_EQ(Allocations::failingNothrowSize, 0U);
  const auto lines = logged();
  EXPECT_EQ(lines[lines.size() - 2],
            line(5, "setFileCacheModifiedDate: Error creating cache entry for " + source));
  EXPECT_EQ(lines.back(), line(5, "Unable to set file cache modified date on " + source));

  Allocations::failingNothrowSize = sizeof(FileAccessCacheEntry);
  EXPECT_FALSE(cache->setFileCacheLocalName("name", "local"));
  ASSERT_EQ(Allocations::failingNothrowSize, 0U);
  EXPECT_EQ(logged().back(), line(5, "setFileCacheLocalName: Error creating cache entry for name"));
}

TEST_F(FileCache, WaitsForNoPipe) {
  const std::string pipe = sources / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const Got got = get(pipe);
  EXPECT_EQ(got.result, 1);
  EXPECT_FALSE(fs::exists(got.local));
  EXPECT_EQ(get("/dev/zero").result, 1);
  EXPECT_TRUE(fs::is_empty(cacheFolder()));
}

TEST_F(FileCache, FlushesNoCopyToDisk) {
  int flushes = 0;
  const Faults watching([&](QvbFaultPoint point, const std::string&) {
    flushes += point == QvbFaultPoint::FileSync;
    return 0;
  });
  remake("-1");
  get(source);
  TestClock::pass(1);
  EXPECT_EQ(readFile(get(source).local), "first");
  EXPECT_EQ(flushes, 0);
}

// Whoever listens to the log can take an entry away between its making and its use.
TEST_F(FileCache, SurvivesTheLossOfTheEntryThatItJustMade) {
  struct Remover final : QvLogSink {
    void record(const QvLogRecord& record) override {
      last = str(record.text);
      if (last.starts_with("setFileCacheModifiedDate: Added")) {
        EXPECT_TRUE(cache->removeFileFromCache(name));
      }
    }
    FileAccessCacheImpl* cache = nullptr;
    QvbString name;
    std::string last;
  };
  const auto remover = std::make_shared<Remover>();
  remover->cache = cache.get();
  remover->name = text(source);
  const std::string files = fileSource();
  qvlogSetSink(remover);
  EXPECT_EQ(get(source), (Got{0, "", ""}));
  qvlogSetSink(nullptr);
  EXPECT_EQ(remover->last,
            "Cache entry lookup failed after modified date set for '" + source + "', provider " + files);
}

TEST_F(FileCache, AddsAFileThatItHasByCopyingItAgain) {
  const std::string files = fileSource();
  const Got first = get(source);
  sources.write("source.txt", "second");
  fs::last_write_time(source, fs::last_write_time(source) + std::chrono::hours(1));
  EXPECT_TRUE(isModified(source));
  QvbString local;
  log.clear();
  EXPECT_EQ(cache->addFileToCache(bob.get(), text(source), &local, &error), 0);
  EXPECT_EQ(str(local), first.local);
  EXPECT_EQ(readFile(first.local), "second");
  EXPECT_THAT(logged(), ElementsAre(usesFiles(source),
                                    line(1, "addFileToCache entered for '" + source + "', provider " + files),
                                    line(1, "Found cache Entry for '" + source + "', provider " + files),
                                    usesFiles(source)));
  EXPECT_FALSE(isModified(source));

  sources.write("source.txt", "");
  local.setNull();
  EXPECT_EQ(cache->addFileToCache(bob.get(), text(source), &local, &error), 1);
  EXPECT_TRUE(local.isNull());
  EXPECT_EQ(logged().back(), line(5, "Error adding file to cachefor '" + source + "', provider " + files));
}

// --- Refreshing

TEST_F(FileCache, RefreshesFromItsDefaultSourceBeforeTheEntrysOwn) {
  RecordingProvider own;
  own.date = dateOf(2021);
  FileAccessCacheEntry entry;
  entry.sourceProvider = &own;
  entry.localFilename = text(sources / "copy");
  EXPECT_EQ(cache->getCacheSourceProvider(&entry, text(source)), &own);
  EXPECT_EQ(update(entry), 0);
  EXPECT_THAT(own.takeCalls(), ElementsAre("getModifiedDate name anew", "updateLocalFileContent name"));
  cache->setSourceProvider(&provider);
  EXPECT_EQ(cache->getCacheSourceProvider(&entry, text(source)), &provider);
  EXPECT_EQ(cache->getCacheSourceProvider(nullptr, text(source)), &provider);
  EXPECT_EQ(update(entry), 0);
  EXPECT_THAT(own.takeCalls(), IsEmpty());
  EXPECT_THAT(provider.takeCalls(), ElementsAre("getModifiedDate name anew", "updateLocalFileContent name"));
  cache->setSourceProvider(nullptr);
  EXPECT_EQ(provider.released, 1);
  entry.sourceProvider = nullptr;
  EXPECT_EQ(cache->getCacheSourceProvider(&entry, text(source)), sourceOf("/a"));
  EXPECT_EQ(own.released, 0);
}

TEST_F(FileCache, KeepsDateUserAndMomentOfARefresh) {
  cache->setSourceProvider(&provider);
  FileAccessCacheEntry entry;
  entry.modifiedDate = dateOf(2019);
  entry.localFilename = text(sources / "copy");
  log.clear();
  EXPECT_EQ(update(entry), 0);
  EXPECT_EQ(entry.modifiedDate.compare(provider.date), 0);
  EXPECT_EQ(entry.cacheUpdatedDate.compare(TestClock::now), 0);
  EXPECT_THAT(entry.authorizedUsers, ElementsAre(QvbString("alice")));
  EXPECT_EQ(sources.read("copy"), "provided");
  EXPECT_THAT(logged(), ElementsAre(line(2, "Cache modified date diff 2020-01-02T03:04:05.000 and "
                                            "2019-01-02T03:04:05.000")));
}

// The source let the user through, so the age of the copy is that of the attempt, and the user is known.
TEST_F(FileCache, CountsARefreshWhoseCopyFailed) {
  cache->setSourceProvider(&provider);
  provider.copyResult = 12;
  provider.copyError = "too busy";
  FileAccessCacheEntry entry;
  EXPECT_EQ(update(entry), 12);
  EXPECT_EQ(entry.modifiedDate.compare(provider.date), 0);
  EXPECT_EQ(entry.cacheUpdatedDate.compare(TestClock::now), 0);
  EXPECT_TRUE(entry.isUserAuthorized(alice.get(), nullptr));
  EXPECT_TRUE(error.isNull());
}

TEST_F(FileCache, RefreshesNothingWithoutADate) {
  cache->setSourceProvider(&provider);
  FileAccessCacheEntry entry;
  provider.date.setNull();
  log.clear();
  EXPECT_EQ(update(entry), 1);
  EXPECT_THAT(logged(), ElementsAre(line(2, "Cache Access provider returned null date for filename name")));

  provider.date = dateOf(2020);
  provider.dateResult = 3;
  provider.error = "not there";
  EXPECT_EQ(update(entry), 3);
  EXPECT_EQ(error, "not there");
  EXPECT_EQ(cache->updateCache(alice.get(), "name", &entry, nullptr), 3);
  const auto line5 = line(5, "updateCache: Error getting modified date for name: not there");
  EXPECT_THAT(logged(), ElementsAre(line5, line5));
  EXPECT_TRUE(entry.cacheUpdatedDate.isNull());
  EXPECT_THAT(entry.authorizedUsers, IsEmpty());
  EXPECT_THAT(provider.calls, Not(Contains("updateLocalFileContent name")));
}

TEST_F(FileCache, RefreshesNothingWithoutASource) {
  FileAccessCacheEntry entry;
  EXPECT_EQ(update(entry, "ftp://h/a"), 1);
  EXPECT_EQ(cache->updateFileCacheContents(alice.get(), "ftp://h/a", &entry), 1);
  const auto scheme = line(1, "getCacheSourceProviderForFileType: scheme='ftp'");
  EXPECT_THAT(logged(),
              ElementsAre(scheme,
                          line(5, "updateCache: Error accessing provider for 'ftp://h/a', provider 0x(nil)"),
                          scheme, line(5, "Provider lookup failed for 'ftp://h/a', provider 0x(nil)")));
}
