// Every system call of an operation fails in turn, in each way that the system has for it. What was there before is there
// byte for byte, or what is new is there whole; nothing else is left, on disk or open.
#include "support/systemcalls.h"

#include "guards.h"
#include "qvfilecacheimpl.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvxbase/qvbconfig.h"
#include "support/countingcontext.h"
#include "support/descriptors.h"
#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/tool.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <set>
#include <span>

namespace fs = std::filesystem;

namespace {

// The first ones stand for the others where time is short; QV_ALL_ERRORS in the environment asks for all.
constexpr int Errors[] = {EIO, EINTR, ShortCount, ENOSPC, EACCES, EMFILE, ELOOP, ENAMETOOLONG};

std::span<const int> errors() {
  return std::span(Errors).first(std::getenv("QV_ALL_ERRORS") ? std::size(Errors) : 4);
}

// Which call of which kind fails, and how.
struct Fault {
  const char* call;
  long number;
  int error;
};

std::string shown(const Fault& fault) {
  return std::string(fault.call) + " " + std::to_string(fault.number) + ": " +
         (fault.error == ShortCount ? "short" : strerrorname_np(fault.error));
}

// Does the work with each of its calls failing in each way; `prepare` comes before each time, `check` after it, with calls
// that work again. The result is how many faults were met.
int failEachCall(const std::function<void()>& prepare, const std::function<void()>& work,
                 const std::function<void(const Fault&)>& check) {
  int met = 0;
  for (const char* call : SystemCalls)
    for (const int error : errors()) {
      bool reached = true;
      for (long number = 1; reached && !testing::Test::HasFailure(); ++number) {
        const Fault fault{call, number, error};
        SCOPED_TRACE(shown(fault));
        prepare();
        failSystemCall(call, number, error);
        work();
        reached = systemCallFailed();
        failSystemCall(nullptr, 0, 0);
        met += reached;
        check(fault);
      }
    }
  return met;
}

std::set<std::string> filesBelow(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(folder))
    names.insert(entry.path().lexically_relative(folder).string());
  return names;
}

// Long enough for more than one block of a copy, and for several reads from a connection.
std::string contentOf(char fill) { return std::string(20'000, fill); }

class SystemCallFaults : public testing::Test {
protected:
  SystemCallFaults() {
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    fs::create_directory(m_dir / "tmp");
    fs::create_directory(m_dir / "sys");
    ::setenv("TMPDIR", (m_dir / "tmp").c_str(), 1);
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "sys"));
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "-1");
  }
  ~SystemCallFaults() override {
    qvbClearConfigOptions();
    m_before.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", m_before.c_str(), 1);
  }

  std::string definitionNow(const std::string& name) const { return m_dir.read("sys/" + name + ".rcf"); }

  const TempDir m_dir;
  LogCapture m_log;
  std::string m_before;
};

// --- Definitions

class DefinitionFaults : public SystemCallFaults {
protected:
  DefinitionFaults() { m_manager.reset(getRepositoryConfigurationManager()); }

  // "Sales" with this text, alone in its folder.
  void save(const char* name, const std::string& log) {
    fs::remove_all(m_dir / "sys");
    fs::create_directory(m_dir / "sys");
    m_definition.reset(m_manager->createConfiguration(name, QvReposConfigTypeSystem));
    m_definition->setVaultLogFile(text(log));
    ASSERT_TRUE(m_manager->saveConfiguration(m_definition.get(), nullptr));
    m_open = openDescriptors();
  }
  // The same without a save: these bytes, read as the definition.
  void place(const char* name, const std::string& bytes) {
    fs::remove_all(m_dir / "sys");
    m_dir.write("sys/" + std::string(name) + ".rcf", bytes);
    m_definition.reset(m_manager->getConfigurationByName(name));
    ASSERT_NE(m_definition, nullptr);
    m_open = openDescriptors();
  }
  std::string written(const char* name, const std::string& log) {
    save(name, log);
    return definitionNow(name);
  }
  // What saving "Sales" under this name and with a new text gives.
  std::string changed(const std::string& old, const char* name) {
    place("Sales", old);
    change(name);
    EXPECT_TRUE(m_manager->saveConfiguration(m_definition.get(), nullptr));
    return definitionNow(name);
  }
  void change(const char* name) {
    m_definition->setName(name);
    m_definition->setVaultLogFile("new");
  }
  void expectNothingElse(const std::set<std::string>& files, const Fault& fault) const {
    EXPECT_EQ(openDescriptors(), m_open);
    // What cannot be removed stays; the system has been asked to.
    if (std::string_view(fault.call) != "unlink" || fault.error == EINTR) {
      EXPECT_EQ(filesBelow(m_dir / "sys"), files);
    }
  }

  Released<QvReposConfigManager> m_manager;
  Released<QvReposConfiguration> m_definition;
  std::set<int> m_open;
};

TEST_F(DefinitionFaults, ASavedDefinitionIsTheOldOrTheNewOne) {
  const std::string old = written("Sales", "old");
  const std::string fresh = changed(old, "Sales");
  bool saved = false;
  const int met = failEachCall(
      [&] {
        place("Sales", old);
        change("Sales");
      },
      [&] { saved = m_manager->saveConfiguration(m_definition.get(), nullptr); },
      [&](const Fault& fault) {
        EXPECT_EQ(definitionNow("Sales"), saved ? fresh : old);
        expectNothingElse({"Sales.rcf"}, fault);
        if (fault.error == EINTR) {
          EXPECT_TRUE(saved);
        }
      });
  EXPECT_GT(met, 20);
}

TEST_F(DefinitionFaults, ANewDefinitionIsThereWholeOrNotAtAll) {
  const std::string fresh = changed(written("Sales", "old"), "Orders");
  bool saved = false;
  failEachCall(
      [&] {
        place("Orders", fresh);
        fs::remove(m_dir / "sys/Orders.rcf");
        m_definition->setFilename(QvbString());
      },
      [&] { saved = m_manager->saveConfiguration(m_definition.get(), nullptr); },
      [&](const Fault& fault) {
        EXPECT_EQ(definitionNow("Orders"), saved ? fresh : "");
        expectNothingElse(saved ? std::set<std::string>{"Orders.rcf"} : std::set<std::string>{}, fault);
      });
}

TEST_F(DefinitionFaults, ARenamedDefinitionIsUnderItsOldNameOrItsNewOne) {
  const std::string old = written("Sales", "old");
  const std::string fresh = changed(old, "Orders");
  bool saved = false;
  failEachCall(
      [&] {
        place("Sales", old);
        change("Orders");
      },
      [&] { saved = m_manager->saveConfiguration(m_definition.get(), nullptr); },
      [&](const Fault& fault) {
        EXPECT_EQ(definitionNow("Orders"), saved ? fresh : "");
        if (!saved) {
          EXPECT_EQ(definitionNow("Sales"), old);
        }
        // One whose old file cannot be looked for is there twice.
        const bool twice = saved && fs::exists(m_dir / "sys/Sales.rcf");
        EXPECT_TRUE(!twice || (definitionNow("Sales") == old && fault.error != EINTR));
        expectNothingElse(twice ? std::set<std::string>{"Orders.rcf", "Sales.rcf"}
                                : std::set<std::string>{saved ? "Orders.rcf" : "Sales.rcf"},
                          fault);
      });
}

TEST_F(DefinitionFaults, ADeletedDefinitionIsGoneOrAsItWas) {
  const std::string old = written("Sales", "old");
  bool deleted = false;
  failEachCall([&] { place("Sales", old); },
               [&] { deleted = m_manager->deleteConfiguration(m_definition.get(), nullptr); },
               [&](const Fault&) {
                 EXPECT_EQ(definitionNow("Sales"), deleted ? "" : old);
                 EXPECT_EQ(filesBelow(m_dir / "sys").size(), deleted ? 0U : 1U);
                 EXPECT_EQ(openDescriptors(), m_open);
               });
}

// --- The file cache

class CacheFaults : public SystemCallFaults {
protected:
  // Asks for the local copy of the name, which has to have this content.
  void expectCopy(const QvbString& name, char content) {
    QvbString local;
    QvbString error;
    EXPECT_EQ(m_cache->getCacheFilename(m_alice.get(), name, &local, &error), 0) << error;
    m_local = str(local);
    EXPECT_TRUE(holds(content));
  }
  bool holds(char content) const {
    std::ifstream in(m_local, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {}) == contentOf(content);
  }
  void refresh(const QvbString& name) {
    QvbString local;
    QvbString error;
    m_cache->getCacheFilename(m_alice.get(), name, &local, &error);
  }
  void expectOneCopy(const Fault& fault) const {
    if (std::string_view(fault.call) != "unlink" || fault.error == EINTR) {
      EXPECT_EQ(filesBelow(fs::path(m_local).parent_path()).size(), 1U);
    }
  }
  void clean() {
    EXPECT_TRUE(m_cache->flush(true));
    EXPECT_TRUE(fs::is_empty(fs::path(m_local).parent_path()));
  }

  const ReleasedSubject m_alice{qvbSubjectCreate("alice", QvbString())};
  CountingContext::Record m_tickets;
  const CountingContext::Factory m_factory{&m_tickets};
  std::string m_local;
  Released<FileAccessCacheImpl> m_cache{new FileAccessCacheImpl};
};

TEST_F(CacheFaults, ARefreshedCopyOfAFileIsTheOldOrTheNewOne) {
  const QvbString source = text(m_dir / "source");
  std::set<int> open;
  const int met = failEachCall(
      [&] {
        m_dir.write("source", contentOf('o'));
        expectCopy(source, 'o');
        m_dir.write("source", contentOf('n'));
        open = openDescriptors();
      },
      [&] { refresh(source); },
      [&](const Fault& fault) {
        EXPECT_TRUE(holds('o') || holds('n'));
        expectOneCopy(fault);
        EXPECT_EQ(openDescriptors(), open);
        expectCopy(source, 'n');
        clean();
      });
  EXPECT_GT(met, 30);
}

TEST_F(CacheFaults, AFlushThatFailsLeavesACacheThatWorks) {
  const QvbString source = text(m_dir.write("source", contentOf('o')));
  std::set<int> open;
  failEachCall(
      [&] {
        expectCopy(source, 'o');
        open = openDescriptors();
      },
      [&] { m_cache->flush(true); },
      [&](const Fault&) {
        EXPECT_EQ(openDescriptors(), open);
        expectCopy(source, 'o');
        clean();
      });
}

TEST_F(CacheFaults, ARefreshedCopyOverHttpIsTheOldOrTheNewOne) {
  HttpServer server;
  server.serveJob("/job", "2026-01-02T03:04:05.006", "jobs/load", server.url("/content"));
  const QvbString job = text(server.url("/job"));
  std::size_t open = 0;
  const int met = failEachCall(
      [&] {
        server.serve("/content", contentOf('o'));
        expectCopy(job, 'o');
        server.serve("/content", contentOf('n'));
        open = openDescriptors().size();
      },
      [&] { refresh(job); },
      [&](const Fault& fault) {
        EXPECT_TRUE(holds('o') || holds('n'));
        expectOneCopy(fault);
        expectCopy(job, 'n');
        clean();
        EXPECT_LE(openDescriptors().size(), open + 2)
            << "both ends of a connection, which the server may keep";
      });
  EXPECT_GT(met, 30);
}

// --- The tool

// Runs the tool with each of its calls of these kinds failing, and checks after each run.
template<class Check>
void failEachCallOfTheTool(const TempDir& dir, const std::vector<std::string>& words,
                           std::initializer_list<const char*> calls, const Check& check) {
  for (const char* call : calls)
    for (const int error : {ENOSPC, EIO}) {
      bool reached = true;
      for (long number = 1; reached && !testing::Test::HasFailure(); ++number) {
        const Fault fault{call, number, error};
        SCOPED_TRACE(shown(fault));
        fs::remove(dir / "reached");
        const auto run = runTool(words, {"LD_PRELOAD=" QV_SYSTEM_CALLS,
                                         "QV_FAIL_CALL=" + std::string(call) + ":" + std::to_string(number) +
                                             ":" + std::to_string(error),
                                         "QV_FAIL_REACHED=" + (dir / "reached")});
        reached = fs::exists(dir / "reached");
        check(run, reached);
      }
    }
}

TEST_F(SystemCallFaults, TheToolsOutputFileIsTheOldOrTheNewOne) {
  const std::string out = m_dir.write("out/lineage.xml", "old");
  const std::vector<std::string> words = {"lineage", sampleRepository + "/batch_jobs/load_calendar.djf", "-o",
                                          out};
  ASSERT_EQ(runTool(words).status, 0);
  const std::string fresh = m_dir.read("out/lineage.xml");
  m_dir.write("out/lineage.xml", "old");
  failEachCallOfTheTool(m_dir, words, {"write", "fsync", "rename"},
                        [&](const ProcessResult& run, bool reached) {
                          const std::string now = m_dir.read("out/lineage.xml");
                          EXPECT_TRUE(now == fresh || (now == "old" && run.status != 0)) << now;
                          EXPECT_EQ(filesBelow(m_dir / "out"), std::set<std::string>{"lineage.xml"});
                          EXPECT_TRUE(reached || run.status == 0) << run.err;
                          m_dir.write("out/lineage.xml", "old");
                        });
}

TEST_F(SystemCallFaults, TheToolTellsThatItsOutputIsNotWhole) {
  const std::vector<std::string> words = {"types"};
  const std::string whole = runTool(words).out;
  ASSERT_FALSE(whole.empty());
  int failed = 0;
  failEachCallOfTheTool(m_dir, words, {"write"}, [&](const ProcessResult& run, bool) {
    failed += run.status != 0;
    if (run.status == 0) {
      EXPECT_EQ(run.out, whole);
    }
  });
  EXPECT_GT(failed, 0);
}

} // namespace
