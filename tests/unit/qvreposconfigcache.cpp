#include "qvreposconfigcache.h"

#include "qvsfio/npfio.h"
#include "qvxbase/qvbfault.h"
#include "qvxbase/qvbformat.h"
#include "support/allocations.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using Names = std::vector<std::string>;

std::atomic<int> filesOpened;
std::atomic<int> foldersOpened;
std::atomic<int> looks;
std::atomic<bool> mayOpen;
std::atomic<bool> mayLookAt;

int watchOpening(QvbFaultPoint point, const char*) {
  looks += point == QvbFaultPoint::FileStat;
  if (point == QvbFaultPoint::FileStat)
    return mayLookAt ? 0 : EACCES;
  if (point != QvbFaultPoint::FileOpen && point != QvbFaultPoint::DirOpen)
    return 0;
  ++(point == QvbFaultPoint::FileOpen ? filesOpened : foldersOpened);
  return mayOpen ? 0 : EACCES;
}

std::string xmlNamed(const std::string& name) { return "<VaultRepositoryInfo Name='" + name + "'/>"; }

// Files are told of an hour after they were changed, when they have settled.
class DefinitionCache : public ::testing::Test {
protected:
  DefinitionCache() {
    mayOpen = true;
    mayLookAt = true;
    qvbSetFaultHook(watchOpening);
  }
  ~DefinitionCache() override { qvbSetFaultHook(nullptr); }

  std::string write(const std::string& name, const std::string& content, int hoursOld = 1) const {
    auto path = m_dir.write(name, content);
    makeOlder(path, hoursOld);
    return path;
  }
  static void makeOlder(const std::string& path, int hours) {
    std::filesystem::last_write_time(path, m_start - std::chrono::hours(hours));
  }

  DefinitionFolder folder(QvReposConfigType type, const Names& names) const {
    DefinitionPaths paths;
    for (const auto& name : names)
      paths.push_back(text(m_dir / name));
    return {type, text(m_dir.path().string()), std::make_shared<const DefinitionPaths>(std::move(paths))};
  }
  std::vector<DefinitionFilePtr> readFiles(const Names& names) const {
    filesOpened = 0;
    return readDefinitionFolder(folder(QvReposConfigTypeSystem, names), m_now)->all;
  }
  // The names of the definitions in the files that could be read.
  Names read(const Names& names) const {
    Names result;
    for (const auto& file : readFiles(names))
      if (file->content != DefinitionFile::Content::Unreadable)
        result.push_back(str(file->definition.getName()));
    return result;
  }
  // Why the files hold no definition.
  Names reasons(const Names& names) const {
    Names result;
    for (const auto& file : readFiles(names))
      result.push_back(str(file->reason));
    return result;
  }

  // The files of a folder below the test's own, or of that itself.
  Names list(const std::string& name = "") const {
    foldersOpened = 0;
    Names result;
    const auto files = listDefinitionFolder(text(name.empty() ? m_dir.path().string() : m_dir / name), m_now);
    for (const auto& path : files ? *files : DefinitionPaths())
      result.push_back(str(path));
    return result;
  }
  struct FolderState {
    NpFileStat stat{};
    std::filesystem::file_time_type modified;
  };
  FolderState stateOfFolder() const {
    FolderState state;
    EXPECT_EQ(np_fio_stat(text(m_dir.path().string()), &state.stat), NP_FIO_OK);
    state.modified = std::filesystem::last_write_time(m_dir.path());
    return state;
  }

  TempDir m_dir;
  std::int64_t m_now = secondsNow() + 3600;
  static inline const auto m_start = std::filesystem::file_time_type::clock::now();
};

TEST_F(DefinitionCache, ReadsFilesInTheirOrder) {
  write("a.rcf", xmlNamed("A"));
  write("b.rcf", xmlNamed("B"));
  EXPECT_EQ(read({"b.rcf", "a.rcf"}), (Names{"B", "A"}));
  EXPECT_EQ(filesOpened, 2);
}

TEST_F(DefinitionCache, AFileThatDidNotChangeIsNotReadAgain) {
  write("a.rcf", xmlNamed("A"));
  write("b.rcf", "malformed");
  write("c.rcf", "<other/>");
  const auto first = readFiles({"a.rcf", "b.rcf", "c.rcf"});
  EXPECT_EQ(filesOpened, 3);
  const auto second = readFiles({"a.rcf", "b.rcf", "c.rcf"});
  EXPECT_EQ(filesOpened, 0);
  EXPECT_EQ(first, second);
  ASSERT_EQ(second.size(), 3U);
  EXPECT_EQ(second[0]->content, DefinitionFile::Content::Definition);
  EXPECT_EQ(second[1]->content, DefinitionFile::Content::Malformed);
  EXPECT_EQ(second[2]->content, DefinitionFile::Content::NoDefinition);
}

TEST_F(DefinitionCache, WhatDidNotChangeIsTheSameObjectAndCostsOneLookAtEachFile) {
  Names names;
  for (int i = 0; i < 50; ++i) {
    names.push_back("definition_" + std::to_string(i) + ".rcf");
    write(names.back(), xmlNamed(names.back()));
  }
  const auto all = folder(QvReposConfigTypeSystem, names);
  const auto first = readDefinitionFolder(all, m_now);
  EXPECT_TRUE(first->areKept);
  looks = 0;
  long allocations = 1'000;
  Allocations::left = allocations;
  const auto second = readDefinitionFolder(all, m_now);
  allocations -= Allocations::left;
  Allocations::left = -1;
  EXPECT_EQ(first, second);
  EXPECT_EQ(looks, 51) << "the folder and each file";
  EXPECT_LT(allocations, 10) << "none for a file";
  write("definition_7.rcf", xmlNamed("Other"));
  const auto third = readDefinitionFolder(all, m_now);
  EXPECT_NE(first, third);
  EXPECT_EQ(third, readDefinitionFolder(all, m_now));
}

// Nobody is told of such a change, neither who watches the file nor who watches its folder: it shows in its times alone.
TEST_F(DefinitionCache, AChangeThroughAMappingIsSeen) {
  const auto path = write("a.rcf", xmlNamed("A"));
  EXPECT_EQ(read({"a.rcf"}), Names{"A"});
  NpFileStat before{};
  NpFileStat after{};
  ASSERT_EQ(np_fio_stat(text(path), &before), NP_FIO_OK);
  const auto place = static_cast<off_t>(xmlNamed("").size()) - 3;
  do {
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(file, -1);
    void* const mapped = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    ASSERT_NE(mapped, MAP_FAILED);
    static_cast<char*>(mapped)[place] = 'B';
    ASSERT_EQ(np_fio_stat(text(path), &after), NP_FIO_OK);
    ::munmap(mapped, 4096);
  } while (after.changedSeconds == before.changedSeconds &&
           after.changedNanoseconds == before.changedNanoseconds);
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

TEST_F(DefinitionCache, OnlyWhatChangedIsReadAgain) {
  write("a.rcf", xmlNamed("A"));
  write("b.rcf", xmlNamed("B"));
  read({"a.rcf", "b.rcf"});
  write("b.rcf", xmlNamed("Other"));
  EXPECT_EQ(read({"a.rcf", "b.rcf"}), (Names{"A", "Other"}));
  EXPECT_EQ(filesOpened, 1);
}

TEST_F(DefinitionCache, AnotherTimeIsAChange) {
  write("a.rcf", xmlNamed("A"), 2);
  read({"a.rcf"});
  write("a.rcf", xmlNamed("B"), 1);
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

TEST_F(DefinitionCache, AnotherFractionOfTheSecondIsAChange) {
  const auto path = write("a.rcf", xmlNamed("A"));
  const auto time = std::filesystem::last_write_time(path);
  read({"a.rcf"});
  m_dir.write("a.rcf", xmlNamed("B"));
  std::filesystem::last_write_time(path, time + std::chrono::nanoseconds(1));
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

TEST_F(DefinitionCache, AnotherSizeIsAChangeEvenAtTheSameTime) {
  write("a.rcf", xmlNamed("A"));
  read({"a.rcf"});
  write("a.rcf", xmlNamed("AB"));
  EXPECT_EQ(read({"a.rcf"}), Names{"AB"});
}

TEST_F(DefinitionCache, AnotherFileUnderTheNameIsAChangeEvenAtTheSameTimeAndSize) {
  const auto path = write("a.rcf", xmlNamed("A"));
  read({"a.rcf"});
  std::filesystem::rename(write("new", xmlNamed("B")), path);
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

// The moment of a change cannot be set, but the file system's clock goes on in steps.
TEST_F(DefinitionCache, AChangeThatHidesItsTimeAndSizeIsSeen) {
  const auto path = write("a.rcf", xmlNamed("A"));
  read({"a.rcf"});
  NpFileStat before{};
  NpFileStat after{};
  ASSERT_EQ(np_fio_stat(text(path), &before), NP_FIO_OK);
  do {
    write("a.rcf", xmlNamed("B"));
    ASSERT_EQ(np_fio_stat(text(path), &after), NP_FIO_OK);
  } while (after.changedSeconds == before.changedSeconds &&
           after.changedNanoseconds == before.changedNanoseconds);
  EXPECT_EQ(after.modifiedNanoseconds, before.modifiedNanoseconds);
  EXPECT_EQ(after.size, before.size);
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

// A second change could fall on the same moment of the file system's clock, whatever time the file was given.
TEST_F(DefinitionCache, AFileIsReadEachTimeUntilItsLastChangeHasSettled) {
  for (const int hoursOld : {0, 1, -1}) {
    const auto path = write("a.rcf", xmlNamed("A"), hoursOld);
    NpFileStat stat{};
    ASSERT_EQ(np_fio_stat(text(path), &stat), NP_FIO_OK);
    m_now = stat.changedSeconds + 2;
    for (int round = 0; round < 2; ++round) {
      read({"a.rcf"});
      EXPECT_EQ(filesOpened, 1) << hoursOld << " hours old";
    }
    m_now = stat.changedSeconds + 3;
    read({"a.rcf"});
    read({"a.rcf"});
    EXPECT_EQ(filesOpened, 0) << hoursOld << " hours old";
  }
}

TEST_F(DefinitionCache, AFileThatCannotBeReadIsTriedAgain) {
  write("a.rcf", xmlNamed("A"));
  write("b.rcf", xmlNamed("B"));
  mayOpen = false;
  EXPECT_EQ(read({"a.rcf", "b.rcf"}), Names{});
  mayOpen = true;
  EXPECT_EQ(read({"a.rcf", "b.rcf"}), (Names{"A", "B"}));
}

TEST_F(DefinitionCache, SaysWhyAFileHoldsNoDefinition) {
  write("a.rcf", xmlNamed("A"));
  write("b.rcf", "<VaultRepositoryInfo\n  Name=>");
  write("c.rcf", "<other/>");
  std::filesystem::create_directory(m_dir / "d.rcf");
  std::filesystem::create_symlink("nowhere", m_dir / "e.rcf");
  const auto told = reasons({"a.rcf", "b.rcf", "c.rcf", "d.rcf", "e.rcf"});
  EXPECT_EQ(told[0], "");
  EXPECT_TRUE(told[1].starts_with(m_dir / "b.rcf:2:")) << told[1];
  EXPECT_EQ(told[2], "The file \"" + m_dir / "c.rcf" + "\" is not a valid definition file.");
  EXPECT_EQ(told[3], (m_dir / "d.rcf") + ": not a regular file");
  EXPECT_EQ(told[4], (m_dir / "e.rcf") + ": not a regular file");
  EXPECT_EQ(reasons({"b.rcf", "c.rcf"}), (Names{told[1], told[2]})) << "of what is known, too";
  mayOpen = false;
  write("b.rcf", "changed");
  EXPECT_EQ(reasons({"b.rcf"}), Names{(m_dir / "b.rcf") + ": access denied"});
  mayLookAt = false;
  EXPECT_EQ(reasons({"b.rcf"}), Names{(m_dir / "b.rcf") + ": access denied"});
}

// Each time memory is short at another moment of reading a file that nobody read before.
TEST_F(DefinitionCache, WhatShortMemoryKeptFromBeingReadIsReadTheNextTime) {
  const auto definitions = folder(QvReposConfigTypeSystem, {"a.rcf"});
  int failures = 0;
  for (long allocations = 0;; ++allocations) {
    // Without a type, whose text is found out by one more allocation.
    write("a.rcf", "<VaultRepositoryInfo Name='A" + std::to_string(allocations) +
                       "'><UnifiedRepositoryConnect>DSN=a long name of a source;QVXTYPE=GRVS;"
                       "</UnifiedRepositoryConnect></VaultRepositoryInfo>");
    bool failed = false;
    Allocations::left = allocations;
    try {
      readDefinitionFolder(definitions, m_now);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    Allocations::left = -1;
    const auto files = readFiles({"a.rcf"});
    ASSERT_EQ(files.size(), 1U);
    ASSERT_EQ(files[0]->content, DefinitionFile::Content::Definition) << allocations;
    ASSERT_EQ(str(files[0]->definition.getName()), "A" + std::to_string(allocations));
    ASSERT_EQ(files[0]->definition.getUnifiedRepositoryConnectType(), "GRVS") << allocations;
    if (!failed)
      break;
    ++failures;
  }
  EXPECT_GT(failures, 10);
}

TEST_F(DefinitionCache, ShortMemoryIsNoEmptyFolder) {
  write("a.rcf", xmlNamed("A"));
  const auto path = text(m_dir.path().string());
  for (long allocations = 0;; ++allocations) {
    Allocations::left = allocations;
    try {
      listDefinitionFolder(path, m_now);
    } catch (const std::bad_alloc&) {
      Allocations::left = 0;
    }
    const bool enough = Allocations::left > 0;
    Allocations::left = -1;
    ASSERT_EQ(list(), Names{m_dir / "a.rcf"}) << allocations;
    if (enough)
      break;
    std::filesystem::remove(write("b", "")); // another state of the folder
  }
}

TEST_F(DefinitionCache, AFileThatIsGoneIsLeftOutAndForgotten) {
  const auto path = write("a.rcf", xmlNamed("A"));
  write("b.rcf", xmlNamed("B"));
  std::weak_ptr<DefinitionFile> known = readFiles({"a.rcf", "b.rcf"})[0];
  EXPECT_FALSE(known.expired());
  std::filesystem::remove(path);
  EXPECT_EQ(read({"a.rcf", "b.rcf"}), Names{"B"});
  EXPECT_TRUE(known.expired());
}

TEST_F(DefinitionCache, AFileThatIsNoLongerListedIsForgotten) {
  write("a.rcf", xmlNamed("A"));
  std::weak_ptr<DefinitionFile> known = readFiles({"a.rcf"})[0];
  read({});
  EXPECT_TRUE(known.expired());
}

TEST_F(DefinitionCache, OnlyRegularFilesAreOpened) {
  std::filesystem::create_directory(m_dir / "folder.rcf");
  ASSERT_EQ(::mkfifo((m_dir / "pipe.rcf").c_str(), 0600), 0);
  std::filesystem::create_symlink("nowhere", m_dir / "link.rcf");
  EXPECT_EQ(read({"folder.rcf", "pipe.rcf", "link.rcf"}), Names{});
  EXPECT_EQ(filesOpened, 0);
}

TEST_F(DefinitionCache, ALinkLeadsToItsFile) {
  write("kept/a.rcf", xmlNamed("A"));
  std::filesystem::create_symlink("kept/a.rcf", m_dir / "link.rcf");
  EXPECT_EQ(read({"link.rcf"}), Names{"A"});
  write("kept/a.rcf", xmlNamed("Other"));
  EXPECT_EQ(read({"link.rcf"}), Names{"Other"});
}

TEST_F(DefinitionCache, EachTypeHasRecordsOfItsOwn) {
  write("a.rcf", xmlNamed("A"));
  for (int round = 0; round < 2; ++round)
    for (const auto type : {QvReposConfigTypeSystem, QvReposConfigTypeUser}) {
      const auto files = readDefinitionFolder(folder(type, {"a.rcf"}), m_now)->all;
      ASSERT_EQ(files.size(), 1U);
      EXPECT_EQ(files[0]->definition.getType(), type);
    }
}

TEST_F(DefinitionCache, FoldersThatAreNoLongerReadAreForgottenInTheEnd) {
  write("a.rcf", xmlNamed("A"));
  std::weak_ptr<DefinitionFile> known = readFiles({"a.rcf"})[0];
  for (int i = 0; i < 8; ++i)
    readDefinitionFolder({QvReposConfigTypeSystem, qvbStringFormat("/nowhere/%d", i),
                          std::make_shared<const DefinitionPaths>()});
  EXPECT_TRUE(known.expired());
}

TEST_F(DefinitionCache, HugeFilesAreNotKept) {
  write("huge.rcf", xmlNamed(std::string(std::size_t{17} << 20, 'x')));
  write("a.rcf", xmlNamed("A"));
  const auto size = readFiles({"huge.rcf", "a.rcf"})[0]->definition.getName().length();
  EXPECT_EQ(size, 17 << 20);
  readFiles({"huge.rcf", "a.rcf"});
  EXPECT_EQ(filesOpened, 1) << "the huge one alone";
}

TEST_F(DefinitionCache, ListsTheDefinitionFilesInTheOrderOfTheirNames) {
  for (const char* name : {"b.rcf", "a.rcf", "xrcf", "c.RCF", "d.rcf.old"})
    write(name, "");
  EXPECT_EQ(list(), (Names{m_dir / "a.rcf", m_dir / "b.rcf", m_dir / "xrcf"}));
  EXPECT_EQ(foldersOpened, 1);
}

TEST_F(DefinitionCache, AFolderThatDidNotChangeIsNotListedAgain) {
  write("a.rcf", xmlNamed("A"));
  const auto first = list();
  write("a.rcf", xmlNamed("Other"));
  EXPECT_EQ(list(), first);
  EXPECT_EQ(foldersOpened, 0);
}

// The moment of a change cannot be set, but the file system's clock goes on in steps.
TEST_F(DefinitionCache, AFolderThatChangedIsListedAgain) {
  write("a.rcf", xmlNamed("A"));
  EXPECT_EQ(list(), Names{m_dir / "a.rcf"});
  const auto before = stateOfFolder();
  do {
    write("b.rcf", xmlNamed("B"));
    std::filesystem::remove(m_dir / "a.rcf");
    std::filesystem::rename(m_dir / "b.rcf", m_dir / "c.rcf");
    std::filesystem::last_write_time(m_dir.path(), before.modified);
  } while (stateOfFolder().stat.changedNanoseconds == before.stat.changedNanoseconds);
  EXPECT_EQ(list(), Names{m_dir / "c.rcf"}) << "with the folder's time set back";
  EXPECT_EQ(foldersOpened, 1);
}

TEST_F(DefinitionCache, AnotherFolderUnderTheNameIsListedAgain) {
  write("one/a.rcf", xmlNamed("A"));
  write("two/b.rcf", xmlNamed("B"));
  std::filesystem::create_directory_symlink("one", m_dir / "folder");
  EXPECT_EQ(list("folder"), Names{m_dir / "folder/a.rcf"});
  std::filesystem::remove(m_dir / "folder");
  std::filesystem::create_directory_symlink("two", m_dir / "folder");
  EXPECT_EQ(list("folder"), Names{m_dir / "folder/b.rcf"});
}

TEST_F(DefinitionCache, AFolderIsListedEachTimeUntilItsLastChangeHasSettled) {
  write("a.rcf", xmlNamed("A"));
  m_now = stateOfFolder().stat.changedSeconds + 2;
  for (int round = 0; round < 2; ++round) {
    list();
    EXPECT_EQ(foldersOpened, 1);
  }
  ++m_now;
  list();
  list();
  EXPECT_EQ(foldersOpened, 0);
}

TEST_F(DefinitionCache, AFolderThatCannotBeOpenedHasNoFilesAndIsTriedAgain) {
  write("a.rcf", xmlNamed("A"));
  mayOpen = false;
  EXPECT_EQ(list(), Names{});
  mayOpen = true;
  EXPECT_EQ(list(), Names{m_dir / "a.rcf"});
  EXPECT_EQ(list("missing"), Names{});
  EXPECT_EQ(list("a.rcf"), Names{});
  EXPECT_EQ(listDefinitionFolder(QvbString()), nullptr);
}

TEST_F(DefinitionCache, AFolderThatCannotBeLookedAtIsListedEachTime) {
  write("a.rcf", xmlNamed("A"));
  list();
  mayLookAt = false;
  EXPECT_EQ(list(), Names{m_dir / "a.rcf"});
  EXPECT_EQ(foldersOpened, 1);
  mayLookAt = true;
}

// Looks again when it is destroyed, and ends the process with a failure unless all is as it was.
struct LookAtEnd {
  LookAtEnd(DefinitionFolder definitions, std::int64_t time) : folder(std::move(definitions)), now(time) {}
  ~LookAtEnd() {
    if (readDefinitionFolder(folder, now)->all.size() != 1 || filesOpened != 1 ||
        listDefinitionFolder(folder.path, now)->size() != 1 || foldersOpened != 1)
      std::_Exit(1);
  }
  DefinitionFolder folder;
  std::int64_t now;
};

TEST_F(DefinitionCache, ServesWhileTheProcessEnds) {
  write("a.rcf", xmlNamed("A"));
  EXPECT_EXIT(
      {
        static const LookAtEnd atEnd(folder(QvReposConfigTypeSystem, {"a.rcf"}), m_now);
        read({"a.rcf"});
        list();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(DefinitionCache, ServesManyThreadsWhileFilesChange) {
  const Names names{"a.rcf", "b.rcf", "c.rcf"};
  for (const auto& name : names)
    write(name, xmlNamed(name));
  std::atomic<int> whole = 0;
  constexpr int threadCount = 4;
  constexpr int rounds = 200;
  std::vector<std::thread> threads;
  threads.reserve(threadCount);
  for (int i = 0; i < threadCount; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round)
        whole += read(names) == names;
    });
  for (int round = 0; round < rounds; ++round)
    makeOlder(m_dir / "b.rcf", 2 + round);
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(whole, threadCount * rounds);
}

} // namespace
