#include "qvfilecacheimpl.h"

#include "qvsfio/npfio.h"
#include "qvxbase/qvbpath.h"
#include "support/allocations.h"
#include "support/filecachefixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

namespace fs = std::filesystem;

// Makes the joining of paths fail in this program: the platform's own has room for every pair that the cache joins.
bool joiningFails = false;

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
  EXPECT_TRUE(isModified(source));
}

TEST_F(FileCache, TakesAnEntryForFreshFromTheMomentThatItIsDated) {
  cache->setFileCacheLocalName("has never been refreshed", QvbString());
  for (const char* name : {"has never been refreshed", "is new", "is new"}) {
    TestClock::pass(5);
    EXPECT_EQ(cache->setFileCacheModifiedDate(name, dateOf(2001)), 0);
    cache->setSourceProvider(&provider);
    log.clear();
    get(name);
    EXPECT_THAT(logged(), Contains(comparesAges(TestClock::now))) << name;
  }
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
  FileAccessCacheEntry entry;
  cache->updateCachedEntryDate(nullptr);
  cache->updateCachedEntryDate(&entry);
  EXPECT_EQ(entry.cacheUpdatedDate.compare(TestClock::now), 0);
}

TEST(FileCacheEntry, BeginsEmpty) {
  const Released<FileAccessCacheEntry> entry(new FileAccessCacheEntry);
  EXPECT_TRUE(entry->modifiedDate.isNull());
  EXPECT_TRUE(entry->cacheUpdatedDate.isNull());
  for (const QvbString& name : {entry->remoteFilename, entry->localFilename}) {
    EXPECT_TRUE(name.isEmpty());
    EXPECT_FALSE(name.isNull());
  }
  EXPECT_THAT(entry->authorizedUsers, IsEmpty());
  EXPECT_EQ(entry->sourceProvider, nullptr);
}

TEST(FileCacheEntry, HasItsFieldsInTheirOrder) {
  const FileAccessCacheEntry entry;
  const std::vector<const void*> fields{&entry.modifiedDate,    &entry.remoteFilename,
                                        &entry.localFilename,   &entry.cacheUpdatedDate,
                                        &entry.authorizedUsers, &entry.sourceProvider};
  EXPECT_TRUE(std::ranges::is_sorted(fields, std::less<>()));
}

TEST(FileCacheEntry, HasNothingToReleaseInANull) {
  FileAccessCacheEntry::release(nullptr);
  const auto before = Allocations::alive.load();
  auto* const entry = new FileAccessCacheEntry;
  entry->authorizedUsers.add("alice");
  FileAccessCacheEntry::release(entry);
  EXPECT_EQ(Allocations::alive, before);
}

TEST(FileCacheEntry, IsAsItWasWhenMemoryForAUserIsShort) {
  const ReleasedSubject alice(qvbSubjectCreate("alice", QvbString()));
  FileAccessCacheEntry entry;
  bool added = true;
  Allocations::failEach(
      [&] {
        entry.authorizedUsers = UserList();
        added = entry.addAuthorizedUser(alice.get(), nullptr);
      },
      [&](long n) {
        EXPECT_EQ(added, Allocations::failed == 0) << n;
        EXPECT_EQ(entry.isUserAuthorized(alice.get(), nullptr), added) << n;
        EXPECT_EQ(entry.authorizedUsers.size(), added ? 1U : 0U) << n;
      });
  EXPECT_TRUE(added);
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
