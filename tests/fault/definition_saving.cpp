// Whatever goes wrong while a definition is saved, its file holds the old definition or the new one, whole.
#include "qvreposres/qvreposconfigmgr.h"

#include "guards.h"
#include "qvxbase/qvbconfig.h"
#include "qvxdom/qvdom.h"
#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <random>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Definition = Released<QvReposConfiguration>;
using Manager = Released<QvReposConfigManager>;
using Names = std::vector<std::string>;
using Point = QvbFaultPoint;

// A system folder with the definition "Sales", whose log file tells its versions apart.
class SavingADefinition : public ::testing::Test {
protected:
  SavingADefinition() {
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir.path().string()));
    m_manager.reset(getRepositoryConfigurationManager());
    m_definition.reset(m_manager->createConfiguration("Sales", QvReposConfigTypeSystem));
    m_definition->setVaultLogFile("old");
    EXPECT_TRUE(m_manager->saveConfiguration(m_definition.get(), nullptr));
    m_old = m_dir.read("Sales.rcf");
  }
  ~SavingADefinition() override { qvbClearConfigOptions(); }

  Names files() const {
    Names names;
    for (const auto& entry : fs::directory_iterator(m_dir.path()))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  std::string failedSave() {
    QvbString error;
    EXPECT_FALSE(m_manager->saveConfiguration(m_definition.get(), &error));
    return str(error);
  }
  std::string writeError(const std::string& name) const {
    return "Error opening file " + m_dir / name + " for writing content.";
  }

  TempDir m_dir;
  Manager m_manager;
  Definition m_definition;
  std::string m_old;
};

// Fails the step of the given number, counted from 0, among those that a save cannot do without.
class FailingStep {
public:
  FailingStep(int step, int error)
      : m_faults([this, step, error](Point point, const std::string&) {
          const bool counts = point != Point::FileStat && point != Point::FileUnlink;
          return counts && m_steps++ == step ? error : 0;
        }) {}
  int steps() const { return m_steps; }

private:
  int m_steps = 0;
  Faults m_faults;
};

// Opening folder and file, writing, flushing, closing, renaming, flushing the folder.
constexpr int saveSteps = 7;
// A new file cannot trade names with an old one, so renaming takes a second step.
constexpr int newFileSteps = saveSteps + 1;

TEST_F(SavingADefinition, FailsAtEachStepWithoutATrace) {
  for (const int error : {EIO, ENOSPC, EACCES})
    for (int step = 0; step < saveSteps; ++step) {
      m_definition->setVaultLogFile("new");
      const FailingStep failing(step, error);
      EXPECT_EQ(failedSave(), writeError("Sales.rcf")) << step;
      EXPECT_EQ(m_dir.read("Sales.rcf"), m_old) << step;
      EXPECT_EQ(files(), Names{"Sales.rcf"}) << step;
    }
}

TEST_F(SavingADefinition, HasNoStepBeyondThese) {
  {
    const FailingStep failing(saveSteps, EIO);
    EXPECT_TRUE(m_manager->saveConfiguration(m_definition.get(), nullptr));
    EXPECT_EQ(failing.steps(), saveSteps);
  }
  m_definition->setName("Orders");
  const FailingStep failing(newFileSteps, EIO);
  EXPECT_TRUE(m_manager->saveConfiguration(m_definition.get(), nullptr));
  EXPECT_EQ(failing.steps(), newFileSteps);
}

TEST_F(SavingADefinition, AFailedRenameKeepsTheOldFileAlone) {
  for (int step = 0; step < newFileSteps; ++step) {
    m_definition->setName("Orders");
    const FailingStep failing(step, EIO);
    EXPECT_EQ(failedSave(), writeError("Orders.rcf")) << step;
    EXPECT_EQ(m_dir.read("Sales.rcf"), m_old) << step;
    EXPECT_EQ(files(), Names{"Sales.rcf"}) << step;
    EXPECT_EQ(str(m_definition->getFilename()), m_dir / "Sales.rcf");
  }
}

TEST_F(SavingADefinition, SucceedsOnceTheFaultIsGone) {
  m_definition->setVaultLogFile("new");
  {
    const Faults faults(Point::FileWrite, ENOSPC);
    failedSave();
  }
  EXPECT_TRUE(m_manager->saveConfiguration(m_definition.get(), nullptr));
  EXPECT_EQ(Definition(m_manager->getConfigurationByName("Sales"))->getVaultLogFile(), "new");
  EXPECT_EQ(files(), Names{"Sales.rcf"});
}

// Runs the work in a process of its own and kills it after a while.
template<class Work>
void killDuring(const Work& work, std::chrono::microseconds after) {
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    work();
    _exit(0);
  }
  usleep(static_cast<useconds_t>(after.count()));
  ASSERT_EQ(kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
}

// A long text shows a file that is not whole, and makes writing take its time.
void saveForever(QvReposConfigManager& manager, QvReposConfiguration& definition) {
  const std::string value(50'000, 'x');
  for (int i = 0;; ++i) {
    definition.setName(i % 3 == 0 ? "Orders" : "Sales");
    definition.setVaultLogFile(text(value + std::to_string(i)));
    definition.setUnifiedRepositoryVersion(definition.getVaultLogFile());
    if (!manager.saveConfiguration(&definition, nullptr))
      _exit(1);
  }
}

// What a save writes has the same text in two places, the second one at the end.
void expectWhole(const fs::path& path, const std::string& old) {
  std::ifstream in(path, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(in), {}};
  QvDom dom;
  ASSERT_TRUE(dom.loadXML(text(content))) << path << ": " << dom.getErrorMessage();
  QvbString log;
  QvbString version;
  for (auto node = dom.getRoot().getFirstChild(false); !node.null(); node = node.getNextSibling(false)) {
    if (node.getName() == "VaultLogFile")
      log = node.getValue(false);
    if (node.getName() == "UnifiedRepositoryVersion")
      version = node.getValue(false);
  }
  EXPECT_TRUE(content == old || (log == version && log.length() > 50'000)) << path;
}

// A killed process leaves a temporary file, which is not taken for a definition.
TEST_F(SavingADefinition, LeavesWholeFilesWhenItsProcessIsKilled) {
  std::minstd_rand random(20261121);
  std::uniform_int_distribution<int> delay(0, 20'000);
  for (int round = 0; round < 100; ++round) {
    killDuring([this] { saveForever(*m_manager, *m_definition); }, std::chrono::microseconds(delay(random)));
    int definitions = 0;
    for (const auto& name : files()) {
      const bool isDefinition = name.ends_with("rcf");
      definitions += isDefinition;
      if (isDefinition)
        expectWhole(m_dir / name, m_old);
      else
        fs::remove(m_dir / name);
    }
    EXPECT_GE(definitions, 1) << "a definition is never lost";
    EXPECT_LE(definitions, 2) << "a rename has both for a moment";
    fs::remove(m_dir / "Orders.rcf");
    std::ofstream(m_dir / "Sales.rcf", std::ios::binary) << m_old;
  }
}

} // namespace
