#include "qvxbase/qvbpath.h"

#include "support/descriptors.h"
#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>
#include <rapidcheck.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct JoinCase {
  const char* directory;
  const char* name;
  const char* joined;
};

TEST(JoiningPaths, PutsOneSlashBetween) {
  const JoinCase cases[] = {
      {"/a", "b", "/a/b"}, {"/a/", "b", "/a/b"},      {"/a", "/b", "/a/b"},    {"/a//", "//b", "/a/b"},
      {"/", "b", "/b"},    {"//", "/b", "/b"},        {"a", "b/c/", "a/b/c/"}, {"a", "/", "a/"},
      {"/", "/", "/"},     {"a b", "c d", "a b/c d"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(str(qvbConcatPath(c.directory, c.name)), c.joined) << c.directory << " + " << c.name;
}

TEST(JoiningPaths, GivesTheOtherOneWhenOneIsEmpty) {
  EXPECT_EQ(qvbConcatPath("/a/", ""), QvbString("/a/"));
  EXPECT_EQ(qvbConcatPath("/a/", QvbString()), QvbString("/a/"));
  EXPECT_EQ(qvbConcatPath("", "b"), QvbString("b"));
  EXPECT_EQ(qvbConcatPath(QvbString(), "/b"), QvbString("/b"));
  EXPECT_TRUE(qvbConcatPath("", "").isEmpty());
}

struct SplitCase {
  const char* path;
  const char* folder;
  const char* name;
};

TEST(SplittingPaths, CutsAtTheLastSlash) {
  const SplitCase cases[] = {
      {"/data/in/customers.txt", "/data/in", "customers.txt"},
      {"a/b", "a", "b"},
      {"b", "", "b"},
      {"/b", "/", "b"},
      {"/", "/", ""},
      {"a/", "a", ""},
      {"/a/b/", "/a/b", ""},
      {"a//b", "a/", "b"},
      {".", "", "."},
      {"c:\\a\\b", "", "c:\\a\\b"},
  };
  for (const auto& c : cases) {
    QvbString folder;
    QvbString name;
    EXPECT_TRUE(qvbParsePath(c.path, &folder, &name)) << c.path;
    EXPECT_EQ(str(folder), c.folder) << c.path;
    EXPECT_EQ(str(name), c.name) << c.path;
    EXPECT_FALSE(folder.isNull()) << c.path;
    EXPECT_FALSE(name.isNull()) << c.path;
  }
}

TEST(SplittingPaths, LeavesOutputsAloneForAnEmptyPath) {
  QvbString folder("untouched");
  QvbString name("untouched");
  EXPECT_FALSE(qvbParsePath("", &folder, &name));
  EXPECT_FALSE(qvbParsePath(QvbString(), &folder, &name));
  EXPECT_EQ(folder, QvbString("untouched"));
  EXPECT_EQ(name, QvbString("untouched"));
}

TEST(SplittingPaths, TakesEachOutputAsOptionalAndThePathItself) {
  QvbString folder;
  QvbString name;
  EXPECT_TRUE(qvbParsePath("/a/b", &folder));
  EXPECT_EQ(folder, QvbString("/a"));
  EXPECT_TRUE(qvbParsePath("/a/b", nullptr, &name));
  EXPECT_EQ(name, QvbString("b"));
  EXPECT_TRUE(qvbParsePath("/a/b", nullptr));
  QvbString path("/a/b");
  EXPECT_TRUE(qvbParsePath(path, &path, &name));
  EXPECT_EQ(path, QvbString("/a"));
  EXPECT_EQ(name, QvbString("b"));
}

TEST(SplittingPaths, IsUndoneByJoining) {
  EXPECT_TRUE(rc::check([](const std::string& folder, const std::string& name) {
    const auto isPart = [](const std::string& part) {
      return !part.empty() && part.find('/') == std::string::npos;
    };
    RC_PRE(isPart(folder) && isPart(name));
    QvbString folderPart;
    QvbString namePart;
    return qvbParsePath(qvbConcatPath(text(folder), text(name)), &folderPart, &namePart) &&
           str(folderPart) == folder && str(namePart) == name;
  }));
}

TEST(Identifiers, AreRandomAndInLowerCase) {
  const char* form = "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}";
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string identifier = str(qvbGetUUID());
    EXPECT_THAT(identifier, testing::MatchesRegex(form));
    EXPECT_TRUE(seen.insert(identifier).second) << identifier;
  }
}

using Iterator =
    std::unique_ptr<QvbDirectory, decltype([](QvbDirectory* directory) { directory->release(); })>;

std::vector<std::string> namesIn(const QvbString& path) {
  const Iterator entries(qvbDirectoryOpen(path, 0, nullptr));
  std::vector<std::string> names;
  while (entries && entries->next())
    names.push_back(str(entries->getName()));
  return names;
}

TEST(Directories, YieldTheirEntriesInByteOrder) {
  const TempDir folder;
  for (const char* name : {"b", "B", "a", "\xC3\xA9", "10", "9", ".hidden", "a.b", "a b"})
    folder.write(name, "");
  std::filesystem::create_directory(folder / "c");
  std::filesystem::create_symlink("nowhere", folder / "d");
  EXPECT_EQ(
      namesIn(text(folder.path().string())),
      (std::vector<std::string>{".hidden", "10", "9", "B", "a", "a b", "a.b", "b", "c", "d", "\xC3\xA9"}));
}

TEST(Directories, GiveNameAndPathOfTheEntryTheyStandOn) {
  const TempDir folder;
  folder.write("a", "");
  for (const auto& path : {folder.path().string(), folder.path().string() + "/"}) {
    const Iterator entries(qvbDirectoryOpen(text(path), 0, nullptr));
    ASSERT_TRUE(entries);
    EXPECT_TRUE(isEmptyText(entries->getName()));
    EXPECT_TRUE(isEmptyText(entries->getPath()));
    EXPECT_TRUE(entries->next());
    EXPECT_EQ(str(entries->getName()), "a");
    EXPECT_EQ(str(entries->getPath()), folder / "a");
    for (int i = 0; i < 3; ++i) {
      EXPECT_FALSE(entries->next());
      EXPECT_TRUE(isEmptyText(entries->getName()));
      EXPECT_TRUE(isEmptyText(entries->getPath()));
    }
  }
}

TEST(Directories, WithoutEntriesYieldNone) {
  const TempDir folder;
  EXPECT_TRUE(namesIn(text(folder.path().string())).empty());
}

TEST(Directories, ShowWhatTheyHeldWhenTheyWereOpened) {
  const TempDir folder;
  folder.write("a", "");
  folder.write("b", "");
  const Iterator entries(qvbDirectoryOpen(text(folder.path().string()), 0, nullptr));
  fs::remove(folder / "a");
  folder.write("c", "");
  EXPECT_TRUE(entries->next());
  EXPECT_EQ(str(entries->getName()), "a");
  EXPECT_TRUE(entries->next());
  EXPECT_EQ(str(entries->getName()), "b");
  EXPECT_FALSE(entries->next());
}

TEST(Directories, AreNamedByUrisToo) {
  const TempDir folder;
  folder.write("a b/c", "");
  const Iterator entries(qvbDirectoryOpen(text("file://" + folder.path().string() + "/a%20b"), 0, nullptr));
  ASSERT_TRUE(entries);
  ASSERT_TRUE(entries->next());
  EXPECT_EQ(str(entries->getPath()), folder / "a b/c");
}

TEST(Directories, HoldNoDescriptor) {
  const TempDir folder;
  const auto before = openDescriptors();
  const Iterator entries(qvbDirectoryOpen(text(folder.path().string()), 0, nullptr));
  EXPECT_EQ(openDescriptors(), before);
}

TEST(Directories, ThatCannotBeOpenedSayWhy) {
  const TempDir folder;
  folder.write("file", "");
  QvbString error;
  EXPECT_EQ(qvbDirectoryOpen(text(folder / "missing"), 0, &error), nullptr);
  EXPECT_EQ(str(error), "Error opening directory " + (folder / "missing") + " (3): not found");
  EXPECT_EQ(qvbDirectoryOpen(text(folder / "file"), 0, &error), nullptr);
  EXPECT_EQ(str(error), "Error opening directory " + (folder / "file") + " (3): not found");
  EXPECT_EQ(qvbDirectoryOpen(QvbString(), 0, &error), nullptr);
  EXPECT_EQ(str(error), "Error opening directory  (3): not found");
  EXPECT_EQ(qvbDirectoryOpen(text(folder.path().string() + '\0'), 0, &error), nullptr);
  EXPECT_EQ(qvbDirectoryOpen("/missing", 0, nullptr), nullptr);
  const Faults faults(QvbFaultPoint::DirOpen, EACCES);
  EXPECT_EQ(qvbDirectoryOpen(text(folder.path().string()), 0, &error), nullptr);
  EXPECT_EQ(str(error), "Error opening directory " + folder.path().string() + " (4): access denied");
}

} // namespace
