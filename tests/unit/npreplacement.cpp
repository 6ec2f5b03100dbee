#include "qvsfio/npfio.h"

#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

// The umask of a test, which the process has only one of.
class Umask {
public:
  explicit Umask(mode_t mask) : m_before(umask(mask)) {}
  ~Umask() { umask(m_before); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

private:
  mode_t m_before;
};

class Replacing : public testing::Test {
protected:
  QvbString path(const std::string& name) const { return text(m_folder / name); }
  NpFile* open(const std::string& name) {
    NpFile* file = nullptr;
    EXPECT_EQ(np_fio_open(path(name), NP_FIO_REPLACE, &file), NP_FIO_OK) << name;
    return file;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(m_folder.path()))
      all.push_back(entry.path().filename().string());
    std::sort(all.begin(), all.end());
    return all;
  }
  mode_t modeOf(const std::string& name) const {
    struct stat entry {};
    EXPECT_EQ(::stat((m_folder / name).c_str(), &entry), 0) << name;
    return entry.st_mode & 07777;
  }

  TempDir m_folder;
};

TEST_F(Replacing, TakesPlaceWhenItIsClosed) {
  m_folder.write("a", "old");
  NpFile* file = open("a");
  EXPECT_EQ(np_fio_putb(file, "ne\0w", 4), 4);
  EXPECT_EQ(np_fio_puts(file, " text"), 5);
  EXPECT_EQ(np_fio_puts(file, QvbString()), 0);
  EXPECT_EQ(np_fio_putb(file, nullptr, 0), 0);
  EXPECT_EQ(m_folder.read("a"), "old");
  EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("a"), std::string("ne\0w text", 9));
  EXPECT_EQ(names(), std::vector<std::string>{"a"});
}

TEST_F(Replacing, MakesAFileThatWasNotThere) {
  NpFile* file = open("a");
  EXPECT_FALSE(fs::exists(m_folder / "a"));
  EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("a"), "");
  EXPECT_EQ(np_fio_writeAll(path("b"), "content"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("b"), "content");
  EXPECT_EQ(names(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(Replacing, LeavesTheOldFileToWhoHoldsItOpen) {
  m_folder.write("a", "old");
  NpFile* reader = nullptr;
  ASSERT_EQ(np_fio_open(path("a"), NP_FIO_READ, &reader), NP_FIO_OK);
  ASSERT_EQ(np_fio_writeAll(path("a"), "new and longer"), NP_FIO_OK);
  std::array<char, 32> block{};
  EXPECT_EQ(np_fio_getb(reader, block.data(), block.size()), 3);
  EXPECT_STREQ(block.data(), "old");
  np_fio_close(reader);
}

TEST_F(Replacing, ShowsReadersOneWholeFileOrTheOther) {
  constexpr std::size_t Size = 100000;
  m_folder.write("a", std::string(Size, '0'));
  std::atomic<bool> ended = false;
  std::thread writer([&] {
    for (int round = 1; round < 10; ++round)
      EXPECT_EQ(np_fio_writeAll(path("a"), text(std::string(Size, static_cast<char>('0' + round)))),
                NP_FIO_OK);
    ended = true;
  });
  while (!ended) {
    QvbString content;
    EXPECT_EQ(np_fio_readAll(path("a"), Size, &content), NP_FIO_OK);
    EXPECT_EQ(content.view(), std::string(Size, content.isEmpty() ? '?' : content.view().front()));
  }
  writer.join();
}

TEST_F(Replacing, ByManyAtOnceLeavesOneOfTheirFiles) {
  std::vector<std::thread> writers;
  for (char mark = 'a'; mark < 'e'; ++mark)
    writers.emplace_back([this, mark] {
      for (int round = 0; round < 5; ++round)
        EXPECT_EQ(np_fio_writeAll(path("a"), text(std::string(5000, mark))), NP_FIO_OK);
    });
  for (auto& writer : writers)
    writer.join();
  const std::string content = m_folder.read("a");
  EXPECT_EQ(content, std::string(5000, content.empty() ? '?' : content.front()));
  EXPECT_EQ(names(), std::vector<std::string>{"a"});
}

TEST_F(Replacing, WorksInAHiddenNeighbourThatNoListOfDefinitionsTakes) {
  NpFile* file = open("sales.rcf");
  const auto during = names();
  ASSERT_EQ(during.size(), 1U);
  EXPECT_EQ(during[0].find(".sales.rcf."), 0U) << during[0];
  EXPECT_EQ(during[0].substr(during[0].size() - 4), ".tmp");
  EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
}

TEST_F(Replacing, TakesNamesOfEveryLength) {
  std::string accents;
  for (int i = 0; i < 127; ++i)
    accents += "\xC3\xA9";
  for (const auto& name : {std::string(255, 'n'), "x" + accents, accents, std::string("\xFF\xFF")}) {
    NpFile* file = open(name);
    ASSERT_NE(file, nullptr) << name;
    const std::string temporary = names().front();
    EXPECT_NE(static_cast<unsigned char>(temporary[temporary.find('.', 1) - 1]), 0xC3U)
        << "cut inside a character";
    EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
    EXPECT_EQ(names(), std::vector<std::string>{name});
    fs::remove(m_folder / name);
  }
  EXPECT_EQ(np_fio_writeAll(path(std::string(256, 'n')), "x"), NP_FIO_NOT_FOUND);
  EXPECT_TRUE(names().empty());
}

TEST_F(Replacing, GivesWrittenHandlesToTheOwnerAlone) {
  const Umask none(0);
  m_folder.write("old", "old");
  fs::permissions(m_folder / "old", fs::perms(0644));
  for (const char* name : {"old", "new"}) {
    NpFile* file = open(name);
    for (const auto& entry : names())
      EXPECT_TRUE(entry == "old" || modeOf(entry) == 0600) << entry;
    EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
    EXPECT_EQ(modeOf(name), 0600U) << name;
  }
}

TEST_F(Replacing, KeepsThePermissionsOfAFileWrittenWhole) {
  const Umask strict(077);
  for (const mode_t mode : {0600U, 0640U, 0664U, 0755U, 0444U}) {
    m_folder.write("a", "old");
    fs::permissions(m_folder / "a", fs::perms(mode));
    EXPECT_EQ(np_fio_writeAll(path("a"), "new"), NP_FIO_OK);
    EXPECT_EQ(modeOf("a"), mode);
    fs::remove(m_folder / "a");
  }
}

TEST_F(Replacing, GivesANewFileWhatTheUmaskLeaves) {
  for (const mode_t mask : {0U, 022U, 027U, 077U}) {
    const Umask current(mask);
    EXPECT_EQ(np_fio_writeAll(path("a"), "new"), NP_FIO_OK);
    EXPECT_EQ(modeOf("a"), 0644U & ~mask);
    fs::remove(m_folder / "a");
  }
}

TEST_F(Replacing, ThroughALinkReplacesWhatItPointsAt) {
  m_folder.write("real/target", "old");
  fs::create_symlink("real/target", m_folder / "relative");
  fs::create_symlink(m_folder / "relative", m_folder / "chain");
  fs::create_symlink("real/fresh", m_folder / "dangling");
  EXPECT_EQ(np_fio_writeAll(path("relative"), "one"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("real/target"), "one");
  EXPECT_EQ(np_fio_writeAll(path("chain"), "two"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("real/target"), "two");
  EXPECT_EQ(np_fio_writeAll(path("dangling"), "three"), NP_FIO_OK);
  EXPECT_EQ(m_folder.read("real/fresh"), "three");
  for (const char* link : {"relative", "chain", "dangling"})
    EXPECT_TRUE(fs::is_symlink(m_folder / link)) << link;
}

TEST_F(Replacing, FollowsAsManyLinksAsTheSystem) {
  m_folder.write("0", "one");
  for (int links = 1; links <= 45; ++links)
    fs::create_symlink(std::to_string(links - 1), m_folder / std::to_string(links));
  int followed = 0;
  for (int links = 1; links <= 45; ++links) {
    const QvbString chain = path(std::to_string(links));
    const bool isFollowed = ::access(chain.asCstr(), W_OK) == 0;
    EXPECT_EQ(np_fio_writeAll(chain, "two"), isFollowed ? NP_FIO_OK : NP_FIO_NOT_FOUND) << links;
    followed += isFollowed ? 1 : 0;
  }
  EXPECT_EQ(followed, 40);
  EXPECT_EQ(m_folder.read("0"), "two");
}

TEST_F(Replacing, RefusesWhatIsNoRegularFile) {
  fs::create_directory(m_folder / "folder");
  fs::create_symlink("folder", m_folder / "link");
  fs::create_symlink("loop", m_folder / "loop");
  ASSERT_EQ(mkfifo((m_folder / "fifo").c_str(), 0600), 0);
  const auto before = names();
  const std::pair<const char*, int> cases[] = {
      {"folder", NP_FIO_UNSUPPORTED},     {"folder/", NP_FIO_UNSUPPORTED},  {"folder/.", NP_FIO_UNSUPPORTED},
      {"folder/..", NP_FIO_UNSUPPORTED},  {"link", NP_FIO_UNSUPPORTED},     {"fifo", NP_FIO_UNSUPPORTED},
      {"missing/file", NP_FIO_NOT_FOUND}, {"fifo/below", NP_FIO_NOT_FOUND}, {"loop", NP_FIO_NOT_FOUND},
  };
  for (const auto& [name, code] : cases) {
    NpFile* file = nullptr;
    EXPECT_EQ(np_fio_open(path(name), NP_FIO_REPLACE, &file), code) << name;
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(np_fio_writeAll(path(name), "x"), code) << name;
  }
  EXPECT_EQ(names(), before);
  EXPECT_EQ(np_fio_writeAll("/dev/null", "x"), NP_FIO_UNSUPPORTED);
}

// A copy can be made again; a document is on disk, with its name, before anybody is told that it was written.
TEST_F(Replacing, FlushesADocumentButNoPrivateCopy) {
  std::vector<std::string> flushed;
  const Faults watching([&](QvbFaultPoint point, const std::string& subject) {
    if (point == QvbFaultPoint::FileSync)
      flushed.push_back(subject);
    return 0;
  });
  for (int i = 0; i < 2; ++i) { // a new name, then one that has a file
    NpFile* file = open("copy");
    EXPECT_EQ(np_fio_puts(file, "copied"), 6);
    EXPECT_EQ(np_fio_close(file), NP_FIO_OK);
    EXPECT_TRUE(flushed.empty());
    EXPECT_EQ(np_fio_writeAll(path("document"), "written"), NP_FIO_OK);
    EXPECT_EQ(flushed, (std::vector{m_folder / "document", m_folder.path().string()}));
    flushed.clear();
  }
  EXPECT_EQ(names(), (std::vector<std::string>{"copy", "document"}));
}

TEST_F(Replacing, TakesRelativePaths) {
  const fs::path before = fs::current_path();
  fs::current_path(m_folder.path());
  EXPECT_EQ(np_fio_writeAll("a", "content"), NP_FIO_OK);
  fs::current_path(before);
  EXPECT_EQ(m_folder.read("a"), "content");
}

TEST_F(Replacing, WritesEveryByteThatIsReadBack) {
  EXPECT_TRUE(rc::check([this](const std::string& bytes) {
    QvbString content;
    return np_fio_writeAll(path("a"), text(bytes)) == NP_FIO_OK &&
           np_fio_readAll(path("a"), INT64_MAX, &content) == NP_FIO_OK && content.view() == bytes;
  }));
}

} // namespace
