#include "qvsfio/npfio.h"

#include "support/descriptors.h"
#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

// Sets TMPDIR while it lives; null unsets it.
class TemporaryRoot {
public:
  explicit TemporaryRoot(const char* value) {
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    set(value);
  }
  ~TemporaryRoot() { set(m_before ? m_before->c_str() : nullptr); }
  TemporaryRoot(const TemporaryRoot&) = delete;
  TemporaryRoot& operator=(const TemporaryRoot&) = delete;

private:
  static void set(const char* value) {
    if (value)
      setenv("TMPDIR", value, 1);
    else
      unsetenv("TMPDIR");
  }
  std::optional<std::string> m_before;
};

mode_t modeOf(const std::string& path) {
  struct stat entry {};
  EXPECT_EQ(::stat(path.c_str(), &entry), 0) << path;
  return entry.st_mode & 07777;
}

class Folders : public testing::Test {
protected:
  QvbString path(const std::string& name) const { return text(m_folder / name); }
  int makeTemporary(const char* name, std::size_t size = 4096) {
    m_directory = reinterpret_cast<NpDir*>(this);
    m_path.fill('x');
    return np_dir_tmpdir(name, m_path.data(), size, &m_directory);
  }

  TempDir m_folder;
  NpDir* m_directory = nullptr;
  std::array<char, 4096> m_path{};
};

TEST_F(Folders, AreMadeOneLevelAtATime) {
  const mode_t before = umask(027);
  EXPECT_EQ(np_dir_create(path("a"), 8), NP_FIO_OK);
  umask(before);
  EXPECT_EQ(modeOf(m_folder / "a"), 0750U);
  EXPECT_EQ(np_dir_create(path("a/b"), 8), NP_FIO_OK);
  EXPECT_EQ(np_dir_create(path("missing/b"), 8), NP_FIO_NOT_FOUND);
  EXPECT_FALSE(fs::exists(m_folder / "missing"));
}

TEST_F(Folders, ThatCannotBeMadeSayWhy) {
  m_folder.write("file", "x");
  EXPECT_EQ(np_dir_create(path("file"), 8), NP_FIO_REFUSED);
  EXPECT_EQ(np_dir_create(path("file/below"), 8), NP_FIO_NOT_FOUND);
  EXPECT_EQ(np_dir_create(path("a"), 0), NP_FIO_UNSUPPORTED);
  EXPECT_EQ(np_dir_create(QvbString(), 8), NP_FIO_NOT_FOUND);
  EXPECT_EQ(np_dir_create(text((m_folder / "a") + '\0' + "b"), 8), NP_FIO_NOT_FOUND);
  const Faults faults(QvbFaultPoint::DirCreate, EACCES);
  EXPECT_EQ(np_dir_create(path("a"), 8), NP_FIO_ACCESS);
  EXPECT_FALSE(fs::exists(m_folder / "a"));
}

TEST_F(Folders, AreNotNamedByUrisOfOtherMachines) {
  const QvbString uri = "file://host/folder";
  EXPECT_EQ(np_dir_create(uri, 8), NP_FIO_UNSUPPORTED);
  EXPECT_EQ(np_dir_unlink(uri), NP_FIO_UNSUPPORTED);
}

TEST_F(Folders, AreNamedByUrisToo) {
  const QvbString uri = text("file://" + m_folder.path().string() + "/a%20b");
  EXPECT_EQ(np_dir_create(uri, 8), NP_FIO_OK);
  EXPECT_TRUE(fs::is_directory(m_folder / "a b"));
  EXPECT_EQ(np_dir_unlink(uri), NP_FIO_OK);
  EXPECT_FALSE(fs::exists(m_folder / "a b"));
}

TEST_F(Folders, AreRemovedWhenTheyAreEmpty) {
  m_folder.write("full/file", "x");
  fs::create_directory(m_folder / "empty");
  EXPECT_EQ(np_dir_unlink(path("empty")), NP_FIO_OK);
  EXPECT_EQ(np_dir_unlink(path("empty")), NP_FIO_NOT_FOUND);
  EXPECT_EQ(np_dir_unlink(path("full")), NP_FIO_REFUSED);
  EXPECT_EQ(np_dir_unlink(path("full/file")), NP_FIO_NOT_FOUND);
  EXPECT_EQ(m_folder.read("full/file"), "x");
}

TEST_F(Folders, ForTemporaryFilesBelongToTheOwnerAlone) {
  const TemporaryRoot root(m_folder.path().c_str());
  const auto before = openDescriptors();
  ASSERT_EQ(makeTemporary("cache"), NP_FIO_OK);
  EXPECT_EQ(std::string(m_path.data()), m_folder / "cache");
  EXPECT_EQ(modeOf(m_path.data()), 0700U);
  ASSERT_NE(m_directory, nullptr);
  np_dir_close(m_directory);
  EXPECT_EQ(openDescriptors(), before);
  np_dir_close(nullptr);
}

TEST_F(Folders, ForTemporaryFilesAreAlwaysNew) {
  const TemporaryRoot root(m_folder.path().c_str());
  fs::create_directory(m_folder / "folder");
  fs::create_symlink("folder", m_folder / "link");
  m_folder.write("file", "x");
  for (const char* name : {"folder", "link", "file"}) {
    EXPECT_EQ(makeTemporary(name), NP_FIO_REFUSED) << name;
    EXPECT_STREQ(m_path.data(), "") << name;
    EXPECT_EQ(m_directory, nullptr) << name;
  }
}

TEST_F(Folders, ForTemporaryFilesHaveASimpleName) {
  const TemporaryRoot root(m_folder.path().c_str());
  for (const char* name : {static_cast<const char*>(nullptr), "", ".", "..", "a/b", "/a", "../a"}) {
    EXPECT_EQ(makeTemporary(name), NP_FIO_REFUSED) << (name ? name : "(null)");
    EXPECT_STREQ(m_path.data(), "");
    EXPECT_EQ(m_directory, nullptr);
  }
  EXPECT_TRUE(fs::is_empty(m_folder.path()));
}

TEST_F(Folders, ForTemporaryFilesNeedRoomForTheirPath) {
  const TemporaryRoot root(m_folder.path().c_str());
  const std::size_t needed = (m_folder / "cache").size() + 1;
  EXPECT_EQ(makeTemporary("cache", needed - 1), NP_FIO_ERROR);
  EXPECT_STREQ(m_path.data(), "");
  EXPECT_EQ(makeTemporary("cache", 0), NP_FIO_ERROR);
  EXPECT_EQ(m_path[0], 'x');
  EXPECT_FALSE(fs::exists(m_folder / "cache"));
  EXPECT_EQ(makeTemporary("cache", needed), NP_FIO_OK);
  np_dir_close(m_directory);
}

TEST_F(Folders, ForTemporaryFilesAreUnderTmpWithoutTmpdir) {
  const std::string name = "qvtest." + m_folder.path().filename().string();
  for (const char* value : {static_cast<const char*>(nullptr), ""}) {
    const TemporaryRoot root(value);
    ASSERT_EQ(makeTemporary(name.c_str()), NP_FIO_OK);
    EXPECT_EQ(std::string(m_path.data()), "/tmp/" + name);
    EXPECT_EQ(np_dir_unlink(m_path.data()), NP_FIO_OK);
    np_dir_close(m_directory);
  }
}

TEST_F(Folders, ForTemporaryFilesAreFoundFromEverywhere) {
  const fs::path before = fs::current_path();
  fs::current_path(m_folder.path());
  fs::create_directory("relative");
  const TemporaryRoot root("relative");
  EXPECT_EQ(makeTemporary("cache"), NP_FIO_OK);
  fs::current_path(before);
  EXPECT_EQ(std::string(m_path.data()), m_folder / "relative/cache");
  np_dir_close(m_directory);
}

TEST_F(Folders, ForTemporaryFilesLeaveNothingWhenTheyFail) {
  const auto before = openDescriptors();
  {
    const TemporaryRoot root((m_folder / "missing").c_str());
    EXPECT_EQ(makeTemporary("cache"), NP_FIO_NOT_FOUND);
  }
  const TemporaryRoot root(m_folder.path().c_str());
  for (const auto point : {QvbFaultPoint::DirCreate, QvbFaultPoint::DirOpen}) {
    const Faults faults(point, EMFILE);
    EXPECT_EQ(makeTemporary("cache"), NP_FIO_REFUSED);
    EXPECT_STREQ(m_path.data(), "");
    EXPECT_EQ(m_directory, nullptr);
  }
  EXPECT_TRUE(fs::is_empty(m_folder.path()));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Folders, ThatAreDiscardedAreGone) {
  const TemporaryRoot root(m_folder.path().c_str());
  const auto before = openDescriptors();
  ASSERT_EQ(makeTemporary("name"), NP_FIO_OK);
  np_dir_discard(m_directory);
  EXPECT_TRUE(fs::is_empty(m_folder.path()));
  ASSERT_EQ(makeTemporary("name"), NP_FIO_OK);
  m_folder.write("name/file", "x");
  np_dir_discard(m_directory);
  EXPECT_EQ(m_folder.read("name/file"), "x") << "only an empty folder goes";
  EXPECT_EQ(openDescriptors(), before);
  np_dir_discard(nullptr);
}

// What both ways tell of a path, the code and what is there.
using Told = std::array<std::int64_t, 9>;

Told toldOf(int code, const NpFileStat& stat) {
  return {code,
          static_cast<std::int64_t>(stat.kind),
          static_cast<std::int64_t>(stat.device),
          static_cast<std::int64_t>(stat.inode),
          stat.size,
          stat.modifiedSeconds,
          stat.modifiedNanoseconds,
          stat.changedSeconds,
          stat.changedNanoseconds};
}

struct Both {
  Told inFolder;
  Told byPath;
};

Both tellBothWays(NpDir* directory, const QvbString& path) {
  NpFileStat inFolder{};
  NpFileStat byPath{};
  const int inFolderCode = np_dir_stat(directory, path, &inFolder);
  const int byPathCode = np_fio_stat(path, &byPath);
  return {toldOf(inFolderCode, inFolder), toldOf(byPathCode, byPath)};
}

TEST_F(Folders, TellOfTheirEntriesAsAWalkToEachDoes) {
  m_folder.write("folder/a", "some");
  m_folder.write("folder/below/b", "more");
  m_folder.write("other/a", "of another folder");
  m_folder.write("folderful", "begins like the folder");
  fs::create_symlink("a", m_folder / "folder/link");
  fs::create_symlink("nowhere", m_folder / "folder/broken");
  const std::string native = m_folder / "folder";
  for (const auto& named : {native, native + "/", "file://" + native}) {
    NpDir* directory = nullptr;
    ASSERT_EQ(np_dir_open(text(named), &directory), NP_FIO_OK);
    for (const char* entry :
         {"folder/a", "folder/below", "folder/below/b", "folder/link", "folder/broken", "folder/missing",
          "folder/.", "folder/..", "folder/", "folder", "folder//a", "folderful", "other/a"})
      for (const auto& prefix : {std::string(), std::string("file://")}) {
        const auto both = tellBothWays(directory, text(prefix + m_folder / entry));
        EXPECT_EQ(both.inFolder, both.byPath) << named << " " << entry;
      }
    np_dir_close(directory);
  }
  const auto both = tellBothWays(nullptr, path("folder/a"));
  EXPECT_EQ(both.inFolder, both.byPath);
  EXPECT_EQ(both.byPath[4], 4);
}

TEST_F(Folders, TellOfEntriesOfTheFolderThatWasOpenedWhateverHasItsNameNow) {
  m_folder.write("folder/a", "some");
  NpDir* directory = nullptr;
  ASSERT_EQ(np_dir_open(path("folder"), &directory), NP_FIO_OK);
  fs::rename(m_folder / "folder", m_folder / "moved");
  m_folder.write("folder/a", "another");
  NpFileStat stat{};
  EXPECT_EQ(np_dir_stat(directory, path("folder/a"), &stat), NP_FIO_OK);
  EXPECT_EQ(stat.size, 4);
  const Faults fault(QvbFaultPoint::FileStat, "folder/a", EACCES);
  EXPECT_EQ(np_dir_stat(directory, path("folder/a"), &stat), NP_FIO_ACCESS);
  np_dir_close(directory);
}

TEST_F(Folders, ThatCannotBeOpenedSayWhy) {
  m_folder.write("file", "x");
  const auto open = openDescriptors();
  NpDir* directory = reinterpret_cast<NpDir*>(this);
  EXPECT_EQ(np_dir_open(path("file"), &directory), NP_FIO_NOT_FOUND);
  EXPECT_EQ(directory, nullptr);
  EXPECT_EQ(np_dir_open(path("missing"), &directory), NP_FIO_NOT_FOUND);
  EXPECT_EQ(np_dir_open("file://elsewhere/folder", &directory), NP_FIO_UNSUPPORTED);
  const Faults fault(QvbFaultPoint::FileStat, EACCES);
  EXPECT_EQ(np_dir_open(text(m_folder.path().string()), &directory), NP_FIO_ACCESS);
  EXPECT_EQ(directory, nullptr);
  EXPECT_EQ(openDescriptors(), open);
}

// A handle that is closed is to others as a process that is gone.
TEST_F(Folders, ForTemporaryFilesGoWithTheNextOneWhenTheirProcessIsGone) {
  const TemporaryRoot root(m_folder.path().c_str());
  ASSERT_EQ(makeTemporary("abandoned"), NP_FIO_OK);
  m_folder.write("abandoned/file", "x");
  m_folder.write("abandoned/.hidden", "x");
  np_dir_close(m_directory);
  const auto before = openDescriptors();
  ASSERT_EQ(makeTemporary("next"), NP_FIO_OK);
  EXPECT_FALSE(fs::exists(m_folder / "abandoned"));
  np_dir_discard(m_directory);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Folders, ForTemporaryFilesStayWhileTheyAreInUse) {
  const TemporaryRoot root(m_folder.path().c_str());
  ASSERT_EQ(makeTemporary("used"), NP_FIO_OK);
  NpDir* const used = m_directory;
  m_folder.write("used/file", "x");
  ASSERT_EQ(makeTemporary("next"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("used/file"), "x");
  np_dir_discard(m_directory);
  np_dir_close(used);
}

TEST_F(Folders, OfOthersStayUnderTheTemporaryRoot) {
  const TemporaryRoot root(m_folder.path().c_str());
  m_folder.write("other/file", "x");
  m_folder.write("plain", "x");
  ASSERT_EQ(makeTemporary("abandoned"), NP_FIO_OK);
  m_folder.write("abandoned/below/file", "x");
  np_dir_close(m_directory);
  fs::create_symlink("other", m_folder / "link");
  ASSERT_EQ(makeTemporary("next"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("other/file"), "x");
  EXPECT_EQ(m_folder.read("link/file"), "x");
  EXPECT_EQ(m_folder.read("plain"), "x");
  EXPECT_EQ(m_folder.read("abandoned/below/file"), "x") << "nothing is followed into folders";
  np_dir_discard(m_directory);
}

} // namespace
