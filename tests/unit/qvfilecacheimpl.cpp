#include "qvfilecacheimpl.h"

#include "qvfilecacheimpl_filesystem.h"
#include "qvfilecacheimpl_http.h"
#include "qvxbase/qvbpath.h"
#include "support/allocations.h"
#include "support/faults.h"
#include "support/filecachefixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include <sys/stat.h>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace fs = std::filesystem;

// --- Beginning and end

TEST_F(FileCache, MakesAPrivateFolderNamedAfterItself) {
  cache.reset();
  log.clear();
  cache.reset(new FileAccessCacheImpl);
  const std::string folder = cacheFolder();
  const std::string name = fs::path(folder).filename().string();
  EXPECT_THAT(name, MatchesRegex(uuid));
  EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700));
  EXPECT_THAT(
      logged(),
      ElementsAre(line(2, "Created file CACHE: " + name),
                  line(2, "Created temp directory for cache: " + folder),
                  line(2, "Setting time between cache changed checks to 2000000000.000000 milliseconds")));
}

TEST_F(FileCache, LeavesNothingBehind) {
  const Got got = get(source);
  EXPECT_EQ(got.result, 0);
  std::ofstream(cacheFolder() + "/orphan") << "x";
  const std::string folder = cacheFolder();
  cache->setSourceProvider(&provider);
  log.clear();
  cache.reset();
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_EQ(provider.released, 1);
  EXPECT_THAT(provider.calls, IsEmpty());
  EXPECT_THAT(logged(),
              ElementsAre(line(1, "Destroying FileAccessCache"),
                          line(1, "Removing cache entry " + got.local + " for remote file " + source),
                          line(4, "Orphaned cache entry found: orphan")));
}

TEST_F(FileCache, TellsWhatItCannotCleanUp) {
  const Got got = get(source);
  fs::remove(got.local);
  const std::string folder = cacheFolder();
  fs::create_directory(folder + "/sub");
  log.clear();
  cache.reset();
  EXPECT_THAT(logged(),
              ElementsAre(line(1, "Destroying FileAccessCache"),
                          line(1, "Removing cache entry " + got.local + " for remote file " + source),
                          line(5, "Unable to remove cache entry local file: " + got.local),
                          line(4, "Orphaned cache entry found: sub"),
                          line(5, "Unable to delete orphaned cache entry: " + folder + "/sub"),
                          line(5, "Error removing cache directory: " + folder)));
  leavesFolder = true;
}

TEST_F(FileCache, TellsThatItsFolderIsGone) {
  const std::string folder = cacheFolder();
  fs::remove(folder);
  QvbString reason;
  EXPECT_EQ(qvbDirectoryOpen(text(folder), 0, &reason), nullptr);
  log.clear();
  cache.reset();
  EXPECT_THAT(logged(),
              ElementsAre(line(1, "Destroying FileAccessCache"),
                          line(5, "Error iterating cache directory for clean-up, error was: " + str(reason)),
                          line(5, "Error removing cache directory: " + folder)));
}

TEST_F(FileCache, GoesOnWithoutAFolder) {
  cache.reset();
  log.clear();
  {
    const Faults faults(QvbFaultPoint::DirCreate, ENOSPC);
    cache.reset(new FileAccessCacheImpl);
  }
  const auto lines = logged();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0].text, MatchesRegex("Created file CACHE: " + uuid));
  EXPECT_EQ(lines[1], line(5, "Error creating cache directory: " + lines[0].text.substr(20)));
  EXPECT_TRUE(isModified(source));

  // no copy goes to the working folder
  const fs::path before = fs::current_path();
  fs::current_path(temporary.path());
  log.clear();
  EXPECT_EQ(get(source), (Got{1, "", ""}));
  const auto fetching = logged();
  EXPECT_THAT(fetching,
              Contains(AllOf(Field(&LogLine::level, 5),
                             Field(&LogLine::text, MatchesRegex("Error building path for target \"\" folder "
                                                                "with \"" +
                                                                uuid + "\" name")))));
  EXPECT_EQ(fetching.back(), line(5, "Error adding file to cache"));
  EXPECT_TRUE(fs::is_empty(temporary.path()));
  fs::current_path(before);

  QvbString reason;
  EXPECT_EQ(qvbDirectoryOpen(QvbString(), 0, &reason), nullptr);
  const LogLine unread = line(5, "Error iterating cache directory for clean-up, error was: " + str(reason));
  EXPECT_TRUE(cache->flush(false));
  EXPECT_THAT(logged(), ElementsAre(line(1, "Flushing FileAccessCache"),
                                    line(1, "Removing cache entry  for remote file " + source),
                                    line(5, "Unable to remove cache entry local file: "), unread));
  cache.reset();
  EXPECT_THAT(logged(), ElementsAre(line(1, "Destroying FileAccessCache"), unread,
                                    line(5, "Error removing cache directory: ")));
}

TEST_F(FileCache, EndsItsSourcesBetweenItsCopiesAndItsFolder) {
  const Got got = get(source);
  const std::string folder = cacheFolder();
  fs::create_directory(folder + "/sub");
  cache->setSourceProvider(&provider);
  log.clear();
  cache.reset();
  EXPECT_THAT(
      textsOf(log.lines()),
      ElementsAre(
          "Destroying FileAccessCache", "Removing cache entry " + got.local + " for remote file " + source,
          "Orphaned cache entry found: sub", "Unable to delete orphaned cache entry: " + folder + "/sub",
          "The host's source is released", "Remote HTTP File cache provider, releasing resources...",
          "Error removing cache directory: " + folder));
  leavesFolder = true;
}

TEST_F(FileCache, GoesOnWithoutALock) {
  cache.reset();
  log.clear();
  {
    const Faults faults(QvbFaultPoint::LockCreate, ENOMEM);
    cache.reset(new FileAccessCacheImpl);
  }
  EXPECT_EQ(log.lines().front(), line(6, "Failed to create file access cache lock"));
  EXPECT_EQ(get(source).result, 0);
  EXPECT_TRUE(cache->flush(false));
}

TEST_F(FileCache, GoesOnWithoutAFilesystemSource) {
  cache.reset();
  Allocations::failingNothrowSize = sizeof(RemoteFilesystemFileProvider);
  cache.reset(new FileAccessCacheImpl);
  ASSERT_EQ(Allocations::failingNothrowSize, 0U);
  EXPECT_EQ(sourceOf("/a"), nullptr);
  EXPECT_NE(sourceOf("http://h/"), nullptr);
  EXPECT_EQ(get(source), (Got{1, "", ""}));
  EXPECT_TRUE(cache->flush(true));
}

TEST_F(FileCache, GoesOnWithoutAnHttpSource) {
  cache.reset();
  Allocations::failingNothrowSize = sizeof(RemoteHttpFileProvider);
  cache.reset(new FileAccessCacheImpl);
  ASSERT_EQ(Allocations::failingNothrowSize, 0U);
  EXPECT_EQ(sourceOf("http://h/"), nullptr);
  EXPECT_EQ(get(source).result, 0);
  cache->setSourceProvider(&provider);
  // the file system source is the last one left, and answers true
  EXPECT_TRUE(cache->flush(true));
}

// --- The interval

TEST_F(FileCache, TakesItsIntervalFromTheOption) {
  struct Case {
    const char* option; // null for none
    int interval;
    LogLine record;
  };
  const LogLine standard = line(1, "Using default time between cache checked of 250");
  const auto refusal = [](const std::string& value) {
    return line(5, "Unable to parse time from parameter BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS=" + value);
  };
  const auto setting = [](const std::string& number) {
    return line(2, "Setting time between cache changed checks to " + number + " milliseconds");
  };
  for (const Case& c : {
           Case{nullptr, 250, standard},
           Case{"0", 0, setting("0.000000")},
           Case{"1500", 1500, setting("1500.000000")},
           Case{" 7", 7, setting("7.000000")},
           Case{"-5", 0, setting("-5.000000")},
           Case{"2147483647", std::numeric_limits<int>::max(), setting("2147483647.000000")},
           Case{"", 250, refusal("")},
           Case{"soon", 250, refusal("soon")},
           Case{"12 s", 250, refusal("12 s")},
           Case{"1.5", 250, refusal("1.5")},
           Case{"2147483648", 250, refusal("2147483648")},
       }) {
    cache.reset();
    qvbSetConfigOption(intervalKey, c.option ? QvbString(c.option) : QvbString());
    log.clear();
    cache.reset(new FileAccessCacheImpl);
    EXPECT_EQ(logged().back(), c.record);
    QvbDate expected;
    expected.assign(2020, 1, 2, 3, 4, 5, c.interval);
    EXPECT_EQ(cache->getCacheExpireAsOfDate(dateOf(2020)).compare(expected), 0) << c.record;
  }
}

TEST_F(FileCache, HasNoIntervalWithoutAnOptionStore) {
  cache.reset();
  log.clear();
  qvbSetConfigAvailable(false);
  cache.reset(new FileAccessCacheImpl);
  qvbSetConfigAvailable(true);
  EXPECT_THAT(logged(), SizeIs(2)); // its name and its folder
  EXPECT_EQ(cache->getCacheExpireAsOfDate(dateOf(2020, 7)).compare(dateOf(2020, 7)), 0);
  get(source);
  TestClock::pass(1);
  sources.write("source.txt", "second");
  EXPECT_EQ(readFile(get(source).local), "second");
}

TEST_F(FileCache, CountsTheIntervalInMillisecondsAcrossEveryElement) {
  remake("1001");
  QvbDate from, expected;
  from.assign(2023, 12, 31, 23, 59, 58, 999);
  expected.assign(2024, 1, 1, 0, 0, 0, 0);
  EXPECT_EQ(cache->getCacheExpireAsOfDate(from).asString(false), expected.asString(false));
  remake("2147483647");
  EXPECT_EQ(cache->getCacheExpireAsOfDate(from).asString(false), "2024-01-25T20:31:21.647");
}

// --- Flush

TEST_F(FileCache, IsUsableAfterAFlush) {
  const Got first = get(source);
  const std::string other = sources.write("another.txt", "another");
  const Got second = get(other);
  std::ofstream(cacheFolder() + "/left") << "x";
  sources.write("source.txt", "second");
  log.clear();
  EXPECT_TRUE(cache->flush(false));
  EXPECT_TRUE(fs::is_empty(cacheFolder()));
  // in the order of their names
  EXPECT_THAT(logged(),
              ElementsAre(line(1, "Flushing FileAccessCache"),
                          line(1, "Removing cache entry " + second.local + " for remote file " + other),
                          line(1, "Removing cache entry " + first.local + " for remote file " + source),
                          line(4, "Orphaned cache entry found: left")));
  EXPECT_EQ(readFile(get(source).local), "second");
  EXPECT_TRUE(cache->flush(false));
  EXPECT_TRUE(cache->flush(false));
}

TEST_F(FileCache, TellsWhatItCannotFlush) {
  cache->setFileCacheLocalName("a name", QvbString());
  cache->setFileCacheLocalName("a name", QvbString()); // a null name has no file
  const Got got = get(source);
  fs::remove(got.local);
  const std::string folder = cacheFolder();
  fs::create_directory(folder + "/sub");
  log.clear();
  // the last source's answer is the result
  EXPECT_TRUE(cache->flush(true));
  EXPECT_THAT(logged(),
              ElementsAre(line(1, "Flushing FileAccessCache"),
                          line(1, "Removing cache entry " + got.local + " for remote file " + source),
                          line(5, "Unable to remove cache entry local file: " + got.local),
                          line(4, "Orphaned cache entry found: sub"),
                          line(5, "Unable to delete orphaned cache entry: " + folder + "/sub")));
  fs::remove(folder + "/sub");
  fs::remove(folder);
  QvbString reason;
  EXPECT_EQ(qvbDirectoryOpen(text(folder), 0, &reason), nullptr);
  EXPECT_TRUE(cache->flush(true));
  EXPECT_EQ(logged().back(),
            line(5, "Error iterating cache directory for clean-up, error was: " + str(reason)));
}

TEST_F(FileCache, FlushesEverySourceWithTheFlag) {
  cache->setSourceProvider(&provider);
  for (const bool flag : {true, false}) {
    log.clear();
    // the last source's answer counts, not the default one's
    EXPECT_TRUE(cache->flush(flag));
    EXPECT_THAT(textsOf(log.lines()),
                ElementsAre("Flushing FileAccessCache", "The host's source is flushed",
                            "Remote File system provider flushing cache.", "Flushing http cache provider",
                            "Flushing http cache provider security context"));
  }
  EXPECT_THAT(provider.calls, ElementsAre("flush true", "flush false"));
}

TEST_F(FileCache, PassesOverALocalNameThatIsNullButNotOneThatIsEmpty) {
  for (const QvbString& name : {QvbString(), QvbString("")}) {
    cache->setFileCacheLocalName("name", name);
    cache->setFileCacheLocalName("name", name); // the first one was generated
    log.clear();
    cache->flush(false);
    const auto lines = logged();
    EXPECT_EQ(lines.size(), name.isNull() ? 1U : 3U);
    EXPECT_EQ(lines.front(), line(1, "Flushing FileAccessCache"));
    if (!name.isNull()) {
      EXPECT_EQ(lines[1], line(1, "Removing cache entry  for remote file name"));
      EXPECT_EQ(lines[2], line(5, "Unable to remove cache entry local file: "));
    }
  }
}

namespace {

// Without any source of its own, so that nobody else has the last word on a flush.
class FileCacheWithoutSources : public FileCache {
protected:
  FileCacheWithoutSources() {
    cache.reset();
    Allocations::failingNothrowSize = sizeof(RemoteFilesystemFileProvider);
    Allocations::nextFailingNothrowSize = sizeof(RemoteHttpFileProvider);
    cache.reset(new FileAccessCacheImpl);
    EXPECT_EQ(Allocations::failingNothrowSize, 0U);
  }
};

} // namespace

TEST_F(FileCacheWithoutSources, HaveNoSourceForAnyName) {
  EXPECT_EQ(sourceOf("/a"), nullptr);
  EXPECT_EQ(sourceOf("http://h/"), nullptr);
}

TEST_F(FileCacheWithoutSources, TellThatAFlushLeftNothing) {
  EXPECT_TRUE(cache->flush(false));
  cache->setFileCacheLocalName("name", "generated");
  cache->setFileCacheLocalName("name", text(sources.write("copy", "x")));
  std::ofstream(cacheFolder() + "/left") << "x";
  EXPECT_TRUE(cache->flush(false));
  EXPECT_FALSE(fs::exists(sources / "copy"));
  EXPECT_TRUE(fs::is_empty(cacheFolder()));
}

TEST_F(FileCacheWithoutSources, TellThatACopyCouldNotBeDeleted) {
  cache->setFileCacheLocalName("name", "generated"); // nobody has made the file
  EXPECT_FALSE(cache->flush(false));
  EXPECT_TRUE(cache->flush(false));
}

TEST_F(FileCacheWithoutSources, TellThatTheirFolderCouldNotBeEmptied) {
  const std::string folder = cacheFolder();
  fs::create_directory(folder + "/sub");
  EXPECT_FALSE(cache->flush(false));
  fs::remove(folder + "/sub");
  EXPECT_TRUE(cache->flush(false));
  fs::remove(folder);
  EXPECT_FALSE(cache->flush(false));
}

TEST_F(FileCacheWithoutSources, TakeTheHostsWordForAFlush) {
  cache->setSourceProvider(&provider);
  EXPECT_FALSE(cache->flush(false));
  provider.flushResult = true;
  fs::create_directory(cacheFolder() + "/sub");
  EXPECT_TRUE(cache->flush(false));
  fs::remove(cacheFolder() + "/sub");
}
