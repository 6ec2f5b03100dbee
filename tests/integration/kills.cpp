// Processes that save, rename and delete definitions and refresh copies in their cache, killed at moments of no choice of
// theirs. What they leave is whole, and the next process removes what nobody uses any more. QV_KILLS sets how many.
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvreposconfigmgr.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbsubject.h"
#include "qvxdom/qvdom.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <new>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// Long enough that writing it takes its time, and that a part of it shows.
constexpr std::size_t Length = 50'000;
const std::string Source(3 * Length, 's');

int kills() {
  const char* const named = std::getenv("QV_KILLS");
  return named ? std::atoi(named) : 50;
}

// What goes on in a process until it is killed.
class Work {
public:
  // `hasFolder` tells whether the cache has a folder that it is not just making.
  Work(const std::string& source, std::atomic<bool>& hasFolder)
      : m_source(text(source)), m_hasFolder(hasFolder), m_manager(getRepositoryConfigurationManager()),
        m_subject(qvbSubjectCreate("alice", QvbString())) {}

  [[noreturn]] void run(unsigned seed) {
    void* out = nullptr;
    qvFileCacheStartup(nullptr, &out);
    for (unsigned step = seed;; ++step) {
      changeDefinition(step);
      QvbString local;
      if (getFileCache()->getCacheFilename(m_subject.get(), m_source, &local, nullptr) != 0)
        _exit(1);
      m_hasFolder = true;
      if (step % 16 != 0)
        continue;
      m_hasFolder = false;
      getFileCache()->flush(true);
    }
  }

private:
  // Saves a definition, gives it another name, and deletes it now and then. The same text stands in two places, the second
  // one at the end of the file.
  void changeDefinition(unsigned step) {
    static constexpr const char* names[] = {"Sales", "Orders", "Stock"};
    const char* const name = names[step % 3];
    Released<QvReposConfiguration> definition(m_manager->getConfigurationByName(name));
    if (!definition)
      definition.reset(m_manager->createConfiguration(name, QvReposConfigTypeSystem));
    const QvbString value = text(std::string(Length + step % 1000, 'x'));
    definition->setVaultLogFile(value);
    definition->setUnifiedRepositoryVersion(value);
    m_manager->saveConfiguration(definition.get(), nullptr);
    definition->setName(names[(step / 3) % 3]);
    m_manager->saveConfiguration(definition.get(), nullptr);
    if (step % 5 == 0)
      m_manager->deleteConfiguration(definition.get(), nullptr);
  }

  const QvbString m_source;
  std::atomic<bool>& m_hasFolder;
  Released<QvReposConfigManager> m_manager;
  const ReleasedSubject m_subject;
};

class Killed : public testing::Test {
protected:
  Killed() {
    fs::create_directory(m_dir / "definitions");
    fs::create_directory(m_dir / "tmp");
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    ::setenv("TMPDIR", (m_dir / "tmp").c_str(), 1);
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "definitions"));
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "-1");
  }
  ~Killed() override {
    munmap(m_hasFolder, sizeof *m_hasFolder);
    qvbClearConfigOptions();
    m_before.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", m_before.c_str(), 1);
  }

  void killOne(unsigned seed, std::chrono::microseconds after) {
    *m_hasFolder = false;
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0)
      Work(m_source, *m_hasFolder).run(seed);
    usleep(static_cast<useconds_t>(after.count()));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "it ended by itself";
    if (!*m_hasFolder)
      ++m_killedWithoutFolder;
  }

  // Every definition file holds what one save wrote. What was being written has a name that is no definition's.
  void expectWholeDefinitions() const {
    int files = 0;
    for (const auto& entry : fs::directory_iterator(m_dir / "definitions")) {
      const std::string name = entry.path().filename().string();
      if (name.ends_with(".rcf")) {
        ++files;
        expectWholeDefinition(name);
      } else {
        EXPECT_TRUE(name.starts_with(".") && name.ends_with(".tmp")) << name;
        fs::remove(entry.path());
      }
    }
    const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
    const Released<QvReposConfigurationList> loaded(manager->getConfigurations());
    int rows = 0;
    while (loaded->next())
      ++rows;
    EXPECT_EQ(rows, files);
  }
  void expectWholeDefinition(const std::string& name) const {
    QvDom dom;
    ASSERT_TRUE(dom.loadXML(text(m_dir.read("definitions/" + name))))
        << name << ": " << dom.getErrorMessage();
    std::vector<QvbString> longTexts;
    for (auto node = dom.getRoot().getFirstChild(false); !node.null(); node = node.getNextSibling(false))
      if (node.getValue(false).length() >= static_cast<int>(Length))
        longTexts.push_back(node.getValue(false));
    ASSERT_EQ(longTexts.size(), 2U) << name;
    EXPECT_EQ(longTexts[0], longTexts[1]) << name;
  }
  // A copy has its name only once it is whole.
  void expectWholeCopies() const {
    for (const auto& entry : fs::recursive_directory_iterator(m_dir / "tmp"))
      if (entry.is_regular_file() && !entry.path().filename().string().starts_with(".")) {
        EXPECT_EQ(fs::file_size(entry.path()), Source.size()) << entry.path();
      }
  }
  // The folders that are left when the next process makes its cache, its own left out.
  std::vector<fs::path> foldersAfterTheNextStart() const {
    void* out = nullptr;
    EXPECT_EQ(qvFileCacheStartup(nullptr, &out), 0);
    const ReleasedSubject subject(qvbSubjectCreate("alice", QvbString()));
    QvbString local;
    EXPECT_EQ(getFileCache()->getCacheFilename(subject.get(), text(m_source), &local, nullptr), 0);
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(m_dir / "tmp"))
      if (entry.path() != fs::path(str(local)).parent_path())
        folders.push_back(entry.path());
    qvFileCacheShutdown();
    return folders;
  }

  const TempDir m_dir;
  const std::string m_source = m_dir.write("source", Source);
  std::string m_before;
  // Seen by the processes that are killed.
  std::atomic<bool>* const m_hasFolder = new (
      mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
      std::atomic<bool>(false);
  std::size_t m_killedWithoutFolder = 0;
};

TEST_F(Killed, ProcessesLeaveWholeFilesAndTheNextOneRemovesTheirCaches) {
  std::minstd_rand random(20261121);
  std::uniform_int_distribution<int> delay(0, 25'000);
  const int rounds = kills();
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    killOne(static_cast<unsigned>(random()), std::chrono::microseconds(delay(random)));
    expectWholeDefinitions();
    expectWholeCopies();
  }
  // A process that is killed while it makes its folder leaves one without a mark, and empty.
  const auto left = foldersAfterTheNextStart();
  EXPECT_TRUE(std::all_of(left.begin(), left.end(), [](const auto& folder) { return fs::is_empty(folder); }));
  EXPECT_LE(left.size(), m_killedWithoutFolder);
}

} // namespace
