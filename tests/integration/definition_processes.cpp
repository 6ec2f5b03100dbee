// Processes that save, rename and delete definitions of the same names, while another one reads the folder.
#include "qvreposres/qvreposconfigmgr.h"

#include "qvsfio/npfio.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbreleased.h"
#include "qvxdom/qvdom.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int rounds = 1000;
constexpr const char* names[] = {"Sales", "Orders", "Stock"};

// What may go wrong for a writer that others come before.
constexpr const char* expectedFailures[] = {
    "A definition already exists with that name.",
    "The definition file did not exist.",
    "There was an error deleting the definition",
};

bool isExpected(bool succeeded, const QvbString& error) {
  return succeeded || std::any_of(std::begin(expectedFailures), std::end(expectedFailures),
                                  [&](const char* message) { return error == message; });
}

// Saves a definition under one name, moves it to another one and deletes it, each round.
class Writer {
public:
  explicit Writer(int number) : m_number(number), m_manager(getRepositoryConfigurationManager()) {}

  // 0 when every operation succeeded or failed as it may, and enough of the two saves of each round succeeded.
  int run() {
    for (int round = 0; round < rounds; ++round)
      if (!change(round))
        return 1;
    return m_saved > rounds / 2 ? 0 : 2;
  }

private:
  static const char* name(int index) { return names[static_cast<std::size_t>(index) % std::size(names)]; }

  bool change(int round) {
    const auto definition = start(name(round + m_number));
    definition->setUnifiedRepositoryVersion(text(std::string(static_cast<std::size_t>(round), 'v')));
    bool sound = save(*definition);
    definition->setName(name(round * 2 + m_number + 1));
    sound = save(*definition) && sound;
    return remove(*definition) && sound;
  }

  // The definition of that name, or a new one.
  Released<QvReposConfiguration> start(const char* definitionName) {
    Released<QvReposConfiguration> found(m_manager->getConfigurationByName(definitionName));
    if (!found)
      found.reset(m_manager->createConfiguration(definitionName, QvReposConfigTypeSystem));
    return found;
  }
  bool save(QvReposConfiguration& definition) {
    QvbString error;
    const bool saved = m_manager->saveConfiguration(&definition, &error);
    m_saved += saved;
    return isExpected(saved, error);
  }
  bool remove(QvReposConfiguration& definition) {
    QvbString error;
    return definition.getFilename().isEmpty() ||
           isExpected(m_manager->deleteConfiguration(&definition, &error), error);
  }

  const int m_number;
  int m_saved = 0;
  Released<QvReposConfigManager> m_manager;
};

// Whether the file is gone, or is a definition with all of its elements.
bool isWholeOrGone(const QvbString& path) {
  QvbString content;
  const int code = np_fio_readAll(path, 1 << 20, &content);
  if (code == NP_FIO_NOT_FOUND)
    return true;
  QvDom dom;
  if (code != NP_FIO_OK || !dom.loadXML(content))
    return false;
  int elements = 0;
  for (auto node = dom.getRoot().getFirstChild(false); !node.null(); node = node.getNextSibling(false))
    ++elements;
  return dom.getRoot().getName() == "VaultRepositoryInfo" && elements == 7;
}

// The number of definition files in the folder, negative when one of them is not whole.
int readFolder(const QvbString& folder) {
  const Released<QvbDirectory> directory(qvbDirectoryOpen(folder, 0, nullptr));
  int files = 0;
  while (directory && directory->next())
    if (directory->getName().right(3) == "rcf") {
      if (!isWholeOrGone(directory->getPath()))
        return -1;
      ++files;
    }
  return files;
}

// Reads the folder until the file that tells the end appears. 0 when everything was whole and there was something.
int readUntilTold(const QvbString& folder, const QvbString& end) {
  int seen = 0;
  while (np_fio_stat(end, nullptr) != NP_FIO_OK) {
    const int files = readFolder(folder);
    if (files < 0)
      return 1;
    seen += files;
  }
  return seen > 0 ? 0 : 2;
}

// This program again, as one of the processes.
class Process {
public:
  explicit Process(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"/proc/self/exe"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words)
      argv.push_back(word.data());
    argv.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&m_id, argv[0], nullptr, nullptr, argv.data(), environ), 0);
  }
  // The exit status, or -1 for a process that a signal ended.
  int wait() const {
    int status = 0;
    EXPECT_EQ(waitpid(m_id, &status, 0), m_id);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  pid_t m_id = 0;
};

TEST(DefinitionProcesses, ReadWholeDefinitionsWhileOthersWriteThem) {
  const TempDir dir;
  std::filesystem::create_directory(dir / "sys");
  const Process reader({"--read", dir / "sys", dir / "end"});
  const Process first({"--write", dir / "sys", "0"});
  const Process second({"--write", dir / "sys", "1"});
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
  dir.write("end", "");
  EXPECT_EQ(reader.wait(), 0);
  for (const auto& entry : std::filesystem::directory_iterator(dir / "sys"))
    EXPECT_TRUE(entry.path().filename().string().ends_with(".rcf")) << entry.path() << " is left over";
}

} // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv, argv + argc);
  if (words.size() == 4 && words[1] == "--read")
    return readUntilTold(text(words[2]), text(words[3]));
  if (words.size() == 4 && words[1] == "--write") {
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(words[2]));
    return Writer(std::stoi(words[3])).run();
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
