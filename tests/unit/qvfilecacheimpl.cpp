#include "qvfilecacheimpl.h"

#include "qvfilecacheimpl_filesystem.h"
#include "qvfilecacheimpl_http.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbpath.h"
#include "support/allocations.h"
#include "support/faults.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <sstream>
#include <string>

#include <sys/stat.h>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

namespace {

namespace fs = std::filesystem;

constexpr const char* intervalKey = "BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS";
constexpr const char* longInterval = "2000000000";
const std::string uuid = "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[0-9a-f]{4}-[0-9a-f]{12}";

// Makes the joining of paths fail in this program: the platform's own has room for every pair that the cache joins.
bool joiningFails = false;

LogLine line(int level, const std::string& text) {
  return {"QV.FileAccessCache", level, "src/qvfilecacheimpl", text};
}

std::string shown(const void* pointer) {
  if (!pointer)
    return "0x(nil)";
  std::ostringstream out;
  out << "0x" << pointer;
  return out.str();
}

// A source that answers from its fields and notes what it was asked.
struct RecordingProvider final : FileAccessCacheSourceProvider {
  void release() override { ++released; }
  bool exists(ASSubject*, const QvbString& name, QvbString*) override {
    calls.push_back("exists " + str(name));
    return true;
  }
  int getModifiedDate(ASSubject*, const QvbString& name, QvbDate* out, QvbString* errorText,
                      bool refresh) override {
    calls.push_back("getModifiedDate " + str(name) + (refresh ? " anew" : ""));
    *errorText = error;
    *out = date;
    return dateResult;
  }
  int updateLocalFileContent(ASSubject*, const QvbString& name, const QvbString& localFilename,
                             QvbString* errorText) override {
    calls.push_back("updateLocalFileContent " + str(name));
    lastLocal = str(localFilename);
    *errorText = error;
    if (copyResult == 0)
      std::ofstream(lastLocal) << content;
    return copyResult;
  }
  bool flush(bool flag) override {
    calls.push_back(flag ? "flush true" : "flush false");
    return false;
  }

  std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

  std::vector<std::string> calls;
  std::string lastLocal;
  std::string content = "provided";
  QvbDate date;
  QvbString error;
  int dateResult = 0;
  int copyResult = 0;
  int released = 0;
};

struct Got {
  int result;
  std::string local;
  std::string error;

  bool operator==(const Got&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Got& got) {
  return out << '{' << got.result << ", \"" << got.local << "\", \"" << got.error << "\"}";
}

QvbDate dateOf(int year, int millisecond = 0) {
  QvbDate date;
  date.assign(year, 1, 2, 3, 4, 5, millisecond);
  return date;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

unsigned permissions(const std::string& path) {
  struct stat entry {};
  EXPECT_EQ(::stat(path.c_str(), &entry), 0) << path;
  return entry.st_mode & 07777;
}

// So that whatever was refreshed before is older than now.
void letTimePass() {
  const QvbDate start = QvbDate::currentDate(false);
  while (QvbDate::currentDate(false).compare(start) <= 0)
    ;
}

// TMPDIR is a folder of the test's own.
class FileCache : public testing::Test {
protected:
  FileCache() {
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    remake(longInterval);
    provider.date = dateOf(2020);
  }
  ~FileCache() override {
    cache.reset();
    EXPECT_TRUE(fs::is_empty(temporary.path()) || leavesFolder);
    m_before ? ::setenv("TMPDIR", m_before->c_str(), 1) : ::unsetenv("TMPDIR");
    qvbClearConfigOptions();
  }

  void remake(const QvbString& interval) {
    cache.reset();
    qvbSetConfigOption(intervalKey, interval);
    cache.reset(new FileAccessCacheImpl);
    log.clear();
  }
  std::string cacheFolder() const { return fs::directory_iterator(temporary.path())->path().string(); }

  // What the cache logged since the last call.
  std::vector<LogLine> logged() {
    auto lines = log.lines("QV.FileAccessCache");
    log.clear();
    return lines;
  }
  Got get(const std::string& name, ASSubject* subject) {
    QvbString local, reason;
    const int result = cache->getCacheFilename(subject, text(name), &local, &reason);
    return {result, str(local), str(reason)};
  }
  Got get(const std::string& name) { return get(name, alice.get()); }
  int update(FileAccessCacheEntry& entry, const QvbString& name = "name") {
    return cache->updateCache(alice.get(), name, &entry, &error);
  }
  // The cache's own sources, as its records name them.
  std::string fileSource() { return shown(sourceOf("/a")); }
  FileAccessCacheSourceProvider* sourceOf(const QvbString& name) {
    auto* const found = cache->getCacheSourceProviderForFileType(name);
    log.clear();
    return found;
  }

  TempDir temporary;
  TempDir sources;
  const std::string source = sources.write("source.txt", "first");
  const std::string missing = sources / "missing.txt";
  const ReleasedSubject alice{qvbSubjectCreate("alice", QvbString())};
  const ReleasedSubject bob{qvbSubjectCreate("bob", QvbString())};
  RecordingProvider provider;
  QvbString error;
  LogCapture log;
  Released<FileAccessCacheImpl> cache;
  bool leavesFolder = false;

private:
  std::optional<std::string> m_before;
};

// The records of looking a name's source up, for a name that is no URI.
LogLine usesFiles(const std::string& name) {
  return line(1, "getCacheSourceProviderForFileType: Using filesystem provider for " + name);
}

} // namespace

// Arrays too are allocations of this program's own, whatever the build.
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
[[gnu::noinline]] void* operator new[](std::size_t size) { return operator new(size); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { operator delete(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { operator delete(memory); }

int np_fio_pcat(const char* directory, const char* name, char* buffer, std::size_t size) {
  const QvbString joined = qvbConcatPath(directory, name);
  EXPECT_GE(size, joined.cStrSize());
  std::memcpy(buffer, joined.asCstr(), joined.cStrSize());
  return joiningFails ? NP_FIO_ERROR : NP_FIO_OK;
}

// --- Beginning and end

TEST_F(FileCache, MakesAPrivateFolderNamedAfterItself) {
  cache.reset();
  log.clear();
  cache.reset(new FileAccessCacheImpl);
  const std::string folder = cacheFolder();
  const std::string name = fs::path(folder).filename().string();
  EXPECT_THAT(name, MatchesRegex(uuid));
  EXPECT_EQ(permissions(folder), 0700U);
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
  bool modified = false;
  EXPECT_EQ(cache->isModified(alice.get(), text(source), &modified, &error), 0);
  EXPECT_TRUE(modified);
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
  letTimePass();
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

// --- Getting a local copy

TEST_F(FileCache, CopiesAFileTheFirstTimeItIsAskedFor) {
  const std::string files = fileSource();
  const Got got = get(source);
  EXPECT_EQ(got.result, 0);
  EXPECT_EQ(got.error, "");
  EXPECT_EQ(readFile(got.local), "first");
  EXPECT_EQ(permissions(got.local), 0600U);
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
  const auto lines = log.lines();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[0], line(1, "getCacheFilename entered for '" + source + "'"));
  const std::string moment = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3}";
  EXPECT_THAT(lines[1].text, MatchesRegex("Cache updated time = \"" + moment + "\", if \"" + moment +
                                          "\" is greater than cache updated time, we update cache[.]"));
  // the first moment is the end of the interval of 23 days, the second one is now
  EXPECT_GT(lines[1].text.substr(22, 23), lines[1].text.substr(52, 23));
  EXPECT_EQ(lines[1], line(1, lines[1].text));
  EXPECT_EQ(lines[2], line(1, "Cache not updated yet..."));
}

TEST_F(FileCache, CopiesAgainOnceTheIntervalHasPassed) {
  for (const char* interval : {"0", "-1"}) {
    remake(interval);
    sources.write("source.txt", "first");
    const Got first = get(source);
    letTimePass();
    sources.write("source.txt", "second");
    log.clear();
    EXPECT_EQ(get(source), first);
    EXPECT_EQ(readFile(first.local), "second");
    QvbDate date;
    sourceOf(text(source))->getModifiedDate(nullptr, text(source), &date, nullptr, false);
  }
}

TEST_F(FileCache, TellsARefreshStepByStep) {
  remake("-1");
  get(source);
  QvbDate date;
  sourceOf(text(source))->getModifiedDate(nullptr, text(source), &date, nullptr, false);
  letTimePass();
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
  letTimePass();
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

TEST_F(FileCache, RefreshesTwiceWhenTheCopyIsOldAndTheUserNew) {
  remake("-1");
  get(source);
  cache->setSourceProvider(&provider);
  provider.dateResult = 12;
  letTimePass();
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
  provider.error = "too busy";
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
  EXPECT_FALSE(entry.cacheUpdatedDate.isNull());
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
  QvbString local;
  log.clear();
  EXPECT_EQ(cache->addFileToCache(bob.get(), text(source), &local, &error), 0);
  EXPECT_EQ(str(local), first.local);
  EXPECT_EQ(readFile(first.local), "second");
  EXPECT_THAT(logged(), ElementsAre(usesFiles(source),
                                    line(1, "addFileToCache entered for '" + source + "', provider " + files),
                                    line(1, "Found cache Entry for '" + source + "', provider " + files),
                                    usesFiles(source)));

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
  EXPECT_FALSE(entry.cacheUpdatedDate.isNull());
  EXPECT_THAT(entry.authorizedUsers, ElementsAre(QvbString("alice")));
  EXPECT_EQ(sources.read("copy"), "provided");
  EXPECT_THAT(logged(), ElementsAre(line(2, "Cache modified date diff 2020-01-02T03:04:05.000 and "
                                            "2019-01-02T03:04:05.000")));
}

// The source let the user through, so the age of the copy is that of the attempt, and the user is known.
TEST_F(FileCache, CountsARefreshWhoseCopyFailed) {
  cache->setSourceProvider(&provider);
  provider.copyResult = 12;
  FileAccessCacheEntry entry;
  EXPECT_EQ(update(entry), 12);
  EXPECT_EQ(entry.modifiedDate.compare(provider.date), 0);
  EXPECT_FALSE(entry.cacheUpdatedDate.isNull());
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

TEST_F(FileCache, AsksItsDefaultSourceForCopiesOnly) {
  cache->setSourceProvider(&provider);
  bool modified = false;
  QvbDate date;
  EXPECT_EQ(cache->isModified(alice.get(), text(source), &modified, &error), 0);
  EXPECT_EQ(cache->getModifiedDate(alice.get(), text(source), &date, &error), 0);
  EXPECT_THAT(provider.takeCalls(), IsEmpty());
  EXPECT_EQ(readFile(get(source).local), "provided");
  EXPECT_THAT(provider.takeCalls(), ElementsAre("updateLocalFileContent " + source));
}

// --- Whether the source has changed

TEST_F(FileCache, ComparesDatesToTellAChange) {
  get("file://" + source);
  bool modified = true;
  log.clear();
  EXPECT_EQ(cache->isModified(alice.get(), text("file://" + source), &modified, &error), 0);
  EXPECT_FALSE(modified);
  EXPECT_THAT(logged(), ElementsAre(line(1, "getCacheSourceProviderForFileType: scheme='file'"),
                                    usesFiles("file://" + source),
                                    line(1, "isModifed: modified date returned 0 for file://" + source)));
  // the same file by another spelling
  EXPECT_EQ(cache->isModified(alice.get(), text("FILE://" + source), &modified, &error), 0);
  EXPECT_FALSE(modified);
  fs::last_write_time(source, fs::last_write_time(source) - std::chrono::hours(1));
  EXPECT_EQ(cache->isModified(alice.get(), text("file://" + source), &modified, &error), 0);
  EXPECT_TRUE(modified);
}

TEST_F(FileCache, TakesWhatItNeverCopiedForModified) {
  bool modified = false;
  EXPECT_EQ(cache->isModified(alice.get(), text(source), &modified, &error), 0);
  EXPECT_TRUE(modified);
}

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
  log.clear();
  EXPECT_TRUE(cache->flush(true));
  EXPECT_TRUE(cache->flush(false));
  EXPECT_THAT(provider.calls, ElementsAre("flush true", "flush false"));
  const LogLine files{"QV.FileAccessCache.FilesystemProvider", 1, "src/qvfilecacheimpl",
                      "Remote File system provider flushing cache."};
  const LogLine http{"QV.FileAccessCache.HttpSystemProvider", 1, "src/qvfilecacheimpl",
                     "Flushing http cache provider"};
  EXPECT_THAT(log.lines(), IsSupersetOf({files, http}));
}

TEST_F(FileCache, AnswersAFlushItselfWhenItHasNoSource) {
  cache.reset();
  Allocations::failingNothrowSize = sizeof(RemoteFilesystemFileProvider);
  cache.reset(new FileAccessCacheImpl);
  ASSERT_EQ(Allocations::failingNothrowSize, 0U);
  EXPECT_TRUE(cache->flush(false));
}

// --- Entries

TEST_F(FileCache, GivesANewEntryAGeneratedNameWhateverTheCallerSays) {
  EXPECT_TRUE(cache->setFileCacheLocalName("name", "/the/callers"));
  EXPECT_THAT(logged(), ElementsAre(line(1, "setFileCacheLocalName: Creating new cache entry for name"),
                                    line(1, "setFileCacheLocalName: Added new cache entry: name , name")));
  cache->setSourceProvider(&provider);
  const std::string local = get("name").local;
  EXPECT_THAT(fs::path(local).filename().string(), MatchesRegex(uuid));
  EXPECT_TRUE(cache->setFileCacheLocalName("name", text(sources / "callers")));
  EXPECT_EQ(get("name").local, sources / "callers");
}

TEST_F(FileCache, DatesAnEntryThatItHas) {
  get(source);
  log.clear();
  EXPECT_EQ(cache->setFileCacheModifiedDate(text(source), dateOf(2001)), 0);
  EXPECT_THAT(logged(), IsEmpty());
  bool modified = false;
  cache->isModified(alice.get(), text(source), &modified, &error);
  EXPECT_TRUE(modified);
}

TEST_F(FileCache, KeepsAnEntryWhoseFileItRemovedAndRemovesOneWhoseFileItCannot) {
  const Got got = get(source);
  log.clear();
  EXPECT_FALSE(cache->removeFileFromCache(text(source)));
  EXPECT_FALSE(fs::exists(got.local));
  EXPECT_THAT(logged(),
              ElementsAre(line(5, "Error removing file contents from cache for file " + got.local)));
  // the entry is still there, and its file cannot be removed again
  EXPECT_TRUE(cache->removeFileFromCache(text(source)));
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_FALSE(cache->removeFileFromCache(text(source)));
  EXPECT_NE(get(source).local, got.local);
}

TEST_F(FileCache, NamesLocalFilesWithoutATraceOfTheRemoteOnes) {
  EXPECT_FALSE(cache->generateLocalFilename(nullptr));
  FileAccessCacheEntry entry;
  entry.remoteFilename = "/secret/name.job";
  EXPECT_TRUE(cache->generateLocalFilename(&entry));
  const std::string first = str(entry.localFilename);
  EXPECT_EQ(fs::path(first).parent_path(), cacheFolder());
  EXPECT_THAT(fs::path(first).filename().string(), MatchesRegex(uuid));
  EXPECT_TRUE(cache->generateLocalFilename(&entry));
  EXPECT_NE(str(entry.localFilename), first);
}

TEST_F(FileCache, TakesWhatAFailedJoinLeft) {
  joiningFails = true;
  FileAccessCacheEntry entry;
  EXPECT_TRUE(cache->generateLocalFilename(&entry));
  joiningFails = false;
  const std::string name = fs::path(str(entry.localFilename)).filename().string();
  EXPECT_THAT(name, MatchesRegex(uuid));
  EXPECT_THAT(logged(), ElementsAre(line(5, "Error building path for target \"" + cacheFolder() +
                                                "\" folder with \"" + name + "\" name")));
}

TEST_F(FileCache, LeavesAnEntryAloneWhenMemoryForItsNameIsShort) {
  FileAccessCacheEntry entry;
  entry.localFilename = "before";
  Allocations::failingNothrowSize = cacheFolder().size() + 36 + 2 + 1;
  EXPECT_TRUE(cache->generateLocalFilename(&entry));
  ASSERT_EQ(Allocations::failingNothrowSize, 0U);
  EXPECT_EQ(entry.localFilename, "before");
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(FileCache, AgesAnEntry) {
  const QvbDate before = QvbDate::currentDate(false);
  FileAccessCacheEntry entry;
  cache->updateCachedEntryDate(nullptr);
  cache->updateCachedEntryDate(&entry);
  EXPECT_GE(entry.cacheUpdatedDate.compare(before), 0);
  EXPECT_LE(entry.cacheUpdatedDate.compare(QvbDate::currentDate(false)), 0);
}

TEST(FileCacheEntry, BeginsEmpty) {
  const Released<FileAccessCacheEntry> entry(new FileAccessCacheEntry);
  EXPECT_TRUE(entry->modifiedDate.isNull());
  EXPECT_TRUE(entry->cacheUpdatedDate.isNull());
  EXPECT_TRUE(entry->remoteFilename.isEmpty());
  EXPECT_TRUE(entry->localFilename.isEmpty());
  EXPECT_THAT(entry->authorizedUsers, IsEmpty());
  EXPECT_EQ(entry->sourceProvider, nullptr);
}

TEST(FileCacheEntry, ListsEachUserOnceInOrder) {
  FileAccessCacheEntry entry;
  const auto subject = [](const char* user) { return ReleasedSubject(qvbSubjectCreate(user, QvbString())); };
  EXPECT_FALSE(entry.isUserAuthorized(subject("zoe").get(), nullptr));
  for (const char* user : {"zoe", "Adam", "ZOE", "adam", "", ""})
    EXPECT_TRUE(entry.addAuthorizedUser(subject(user).get(), nullptr)) << user;
  EXPECT_THAT(entry.authorizedUsers, ElementsAre(QvbString("zoe"), QvbString("Adam"), QvbString("")));
  EXPECT_TRUE(entry.isUserAuthorized(subject("aDAM").get(), nullptr));
  EXPECT_FALSE(entry.isUserAuthorized(subject("ada").get(), nullptr));
}

TEST(FileCacheEntry, KnowsNobodyWithoutInformation) {
  FileAccessCacheEntry entry;
  QvbString error;
  EXPECT_FALSE(entry.addAuthorizedUser(nullptr, &error));
  EXPECT_EQ(error, "There is no subject to give information about.");
  error.setNull();
  EXPECT_FALSE(entry.isUserAuthorized(nullptr, &error));
  EXPECT_EQ(error, "There is no subject to give information about.");
  EXPECT_FALSE(entry.isUserAuthorized(nullptr, nullptr));
  EXPECT_THAT(entry.authorizedUsers, IsEmpty());
}
