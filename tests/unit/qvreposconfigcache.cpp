#include "qvreposconfigcache.h"

#include "qvsfio/npfio.h"
#include "qvxbase/qvbfault.h"
#include "qvxbase/qvbformat.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <sys/stat.h>
#include <thread>

namespace {

using Names = std::vector<std::string>;

std::atomic<int> filesOpened;
std::atomic<bool> mayOpen;

int watchOpening(QvbFaultPoint point, const char*) {
  if (point != QvbFaultPoint::FileOpen)
    return 0;
  ++filesOpened;
  return mayOpen ? 0 : EACCES;
}

std::string xmlNamed(const std::string& name) { return "<VaultRepositoryInfo Name='" + name + "'/>"; }

// Files are made an hour old, so that they count as settled.
class DefinitionCache : public ::testing::Test {
protected:
  DefinitionCache() {
    mayOpen = true;
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
    DefinitionFolder result{type, text(m_dir.path().string()), {}};
    for (const auto& name : names)
      result.files.push_back(text(m_dir / name));
    return result;
  }
  std::vector<DefinitionFilePtr> readFiles(const Names& names) const {
    filesOpened = 0;
    return readDefinitionFolder(folder(QvReposConfigTypeSystem, names));
  }
  // The names of the definitions read.
  Names read(const Names& names) const {
    Names result;
    for (const auto& file : readFiles(names))
      result.push_back(str(file->definition.getName()));
    return result;
  }

  TempDir m_dir;
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

// A second change could fall on the same moment of the file system's clock.
TEST_F(DefinitionCache, AFileChangedJustNowIsReadAgain) {
  m_dir.write("a.rcf", xmlNamed("A"));
  read({"a.rcf"});
  m_dir.write("a.rcf", xmlNamed("B"));
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

TEST_F(DefinitionCache, AFileOfTheFutureIsReadAgain) {
  write("a.rcf", xmlNamed("A"), -1);
  read({"a.rcf"});
  write("a.rcf", xmlNamed("B"), -1);
  EXPECT_EQ(read({"a.rcf"}), Names{"B"});
}

TEST_F(DefinitionCache, AFileThatCannotBeReadIsTriedAgain) {
  write("a.rcf", xmlNamed("A"));
  write("b.rcf", xmlNamed("B"));
  mayOpen = false;
  EXPECT_EQ(read({"a.rcf", "b.rcf"}), Names{});
  mayOpen = true;
  EXPECT_EQ(read({"a.rcf", "b.rcf"}), (Names{"A", "B"}));
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
      const auto files = readDefinitionFolder(folder(type, {"a.rcf"}));
      ASSERT_EQ(files.size(), 1U);
      EXPECT_EQ(files[0]->definition.getType(), type);
    }
}

TEST_F(DefinitionCache, FoldersThatAreNoLongerReadAreForgottenInTheEnd) {
  write("a.rcf", xmlNamed("A"));
  std::weak_ptr<DefinitionFile> known = readFiles({"a.rcf"})[0];
  for (int i = 0; i < 8; ++i)
    readDefinitionFolder({QvReposConfigTypeSystem, qvbStringFormat("/nowhere/%d", i), {}});
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

TEST_F(DefinitionCache, ServesWhileTheProcessEnds) {
  write("a.rcf", xmlNamed("A"));
  EXPECT_EXIT(
      {
        static const struct AtEnd {
          DefinitionFolder folder;
          ~AtEnd() {
            if (readDefinitionFolder(folder).size() != 1 || filesOpened != 1)
              std::_Exit(1);
          }
        } atEnd{folder(QvReposConfigTypeSystem, {"a.rcf"})};
        read({"a.rcf"});
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
