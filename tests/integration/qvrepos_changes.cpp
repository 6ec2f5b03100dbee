// Definitions that are created, changed, renamed and deleted, one process at a time.
#include "support/tooldefinitions.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>

using testing::HasSubstr;

namespace {

TEST_F(Definitions, CreatedOnesAreSavedAsTheyWereGiven) {
  const auto created =
      run({"create", "Größe & \"Co\"", "--vault", "/srv/größe/", "--connect", "DSN=A;QVXTYPE=GRVS;",
           "--connection", "GRVS", "--prefix", "dbo.P_", "--log", "/var/log/x.log", "--inactive"});
  EXPECT_EQ(created.status, 0) << created.err;
  EXPECT_EQ(created.out, (m_folder / "user/Größe & \"Co\".rcf") + "\n");
  const auto shown = show("größe & \"co\""); // ASCII letters alone fold, so the name is found as it is
  EXPECT_EQ(shown["type"], "user");
  EXPECT_EQ(shown["active"], false);
  EXPECT_EQ(shown["vaultPath"], "/srv/größe");
  EXPECT_EQ(shown["connection"], "GRVS");
  EXPECT_EQ(shown["schema"], "dbo");
  EXPECT_EQ(shown["prefix"], "P_");
  EXPECT_EQ(shown["vaultLogFile"], "/var/log/x.log");
}

TEST_F(Definitions, CreatedOfTypeSystemGoToTheSystemFolder) {
  EXPECT_EQ(run({"create", "Sales", "--type", "system"}).out, (m_folder / "system/Sales.rcf") + "\n");
  EXPECT_EQ(show("Sales")["connection"], "File");
}

TEST_F(Definitions, NamesAreUniqueInAnyCase) {
  run({"create", "Sales", "--type", "system"});
  const auto again = run({"create", "SALES"});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "qvrepos: SALES: there is a definition of that name already; choose another name, or "
                       "change that one with `qvrepos definitions set`\n");
}

TEST_F(Definitions, NamesThatWouldLeaveTheFolderAreRefused) {
  for (const char* name : {"../Sales", "a/b", "", "a:b"}) {
    const auto run = this->run({"create", name});
    EXPECT_EQ(run.status, 1) << name;
    EXPECT_THAT(run.err, HasSubstr("a definition's name is not empty and holds none of /\\:;,?*<>|"));
  }
}

TEST_F(Definitions, SavingWithoutAFolderShowsTheLibrarysMessageAndWhatToSet) {
  const auto run = runTool({"definitions", "create", "Sales"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "qvrepos: Sales: A valid filename could not be created to save the definition\n"
            "qvrepos: BASE/REPOS_USER_PATH is not set: name the folder of the user's definitions with --set "
            "BASE/REPOS_USER_PATH=FOLDER or in the file of --config\n");
  EXPECT_THAT(runTool({"definitions", "create", "Sales", "--type", "system", "--set",
                       "BASE/REPOS_USER_PATH=" + (m_folder / "user")})
                  .err,
              HasSubstr("BASE/REPOS_SYS_PATH is not set: name the folder of the system's definitions"));
}

TEST_F(Definitions, RenamedOnesMoveTheirFile) {
  run({"create", "Old", "--vault", "/srv/old"});
  const auto renamed = run({"rename", "OLD", "New"});
  EXPECT_EQ(renamed.status, 0) << renamed.err;
  EXPECT_EQ(renamed.out, (m_folder / "user/New.rcf") + "\n");
  EXPECT_FALSE(std::filesystem::exists(m_folder / "user/Old.rcf"));
  EXPECT_EQ(show("New")["vaultPath"], "/srv/old");
}

TEST_F(Definitions, RenamingOntoAnotherOneChangesNothing) {
  run({"create", "One"});
  run({"create", "Two", "--vault", "/srv/two"});
  const auto renamed = run({"rename", "One", "two"});
  EXPECT_EQ(renamed.status, 1);
  EXPECT_EQ(renamed.err, "qvrepos: two: there is a definition of that name already; choose another name, or "
                         "change that one with `qvrepos definitions set`\n");
  EXPECT_EQ(show("Two")["vaultPath"], "/srv/two");
  EXPECT_EQ(show("One")["name"], "One");
}

TEST_F(Definitions, DeletedOnesAreGone) {
  run({"create", "Sales"});
  EXPECT_EQ(run({"delete", "sales"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(m_folder / "user/Sales.rcf"));
  const auto again = run({"delete", "sales"});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err,
            "qvrepos: no repository definition is named \"sales\"; `qvrepos definitions list` shows all\n");
}

TEST_F(Definitions, ChangesAsJsonPrintTheRecordOfTheDefinition) {
  const auto record = [this](std::vector<std::string> words) {
    words.emplace_back("--json");
    return nlohmann::json::parse(run(words).out);
  };
  const auto created = record({"create", "Old", "--vault", "/srv/old"});
  EXPECT_EQ(created, show("Old"));
  const auto renamed = record({"rename", "Old", "New"});
  EXPECT_EQ(renamed, show("New"));
  EXPECT_EQ(record({"default"}), nlohmann::json({{"name", "New"}}));
  EXPECT_EQ(record({"delete", "New"}), renamed);
}

TEST_F(Definitions, PathsAreKeptAsAbsoluteOnes) {
  run({"create", "Sales", "--vault", "srv/sales", "--log", "sales.log"});
  const auto shown = show("Sales");
  EXPECT_EQ(shown["vaultPath"], "/srv/sales"); // the tests run in /
  EXPECT_EQ(shown["vaultLogFile"], "/sales.log");
}

TEST_F(Definitions, AnyFieldCanBeSet) {
  run({"create", "Sales", "--vault", "/srv/old"});
  const auto set = run({"set", "SALES", "--vault", "/srv/new/", "--connect", "DSN=A;", "--connection", "ODBC",
                        "--prefix", "dbo.P_", "--log", "/var/log/x.log", "--repository-name", "Store",
                        "--repository-version", "9.9", "--deactivate", "--json"});
  EXPECT_EQ(set.status, 0) << set.err;
  const nlohmann::json expected{{"name", "Sales"},
                                {"type", "user"},
                                {"active", false},
                                {"vaultPath", "/srv/new"},
                                {"vaultLogFile", "/var/log/x.log"},
                                {"connect", "DSN=A;"},
                                {"connection", "ODBC"},
                                {"schema", "dbo"},
                                {"prefix", "P_"},
                                {"repositoryName", "Store"},
                                {"repositoryVersion", "9.9"},
                                {"file", m_folder / "user/Sales.rcf"}};
  EXPECT_EQ(nlohmann::json::parse(set.out), expected);
  EXPECT_EQ(show("Sales"), expected);
}

TEST_F(Definitions, FieldsThatAreNotGivenStayAndEmptyOnesAreTakenAway) {
  run({"create", "Sales", "--vault", "/srv/sales", "--connect", "DSN=A;", "--inactive"});
  EXPECT_EQ(run({"set", "Sales", "--vault", "", "--activate"}).out, (m_folder / "user/Sales.rcf") + "\n");
  const auto shown = show("Sales");
  EXPECT_EQ(shown["vaultPath"], "");
  EXPECT_EQ(shown["connect"], "DSN=A;");
  EXPECT_EQ(shown["active"], true);
}

TEST_F(Definitions, AnotherNameOrTypeMovesTheFile) {
  run({"create", "Sales"});
  EXPECT_EQ(run({"set", "Sales", "--type", "system", "--name", "Orders"}).out,
            (m_folder / "system/Orders.rcf") + "\n");
  EXPECT_FALSE(std::filesystem::exists(m_folder / "user/Sales.rcf"));
  EXPECT_EQ(show("Orders")["type"], "system");
}

TEST_F(Definitions, AFileOfAnotherDefinitionThatDiffersInCaseIsNotReplaced) {
  run({"create", "Sales"});
  const auto other = m_folder.write("user/SALES.rcf", definition("Other"));
  const auto message =
      "qvrepos: SALES: there is a file of that name already; choose another name, or move it away: " + other +
      "\n";
  EXPECT_EQ(run({"rename", "Sales", "SALES"}).err, message);
  EXPECT_EQ(run({"set", "Sales", "--name", "SALES"}).err, message);
  EXPECT_EQ(m_folder.read("user/SALES.rcf"), definition("Other"));
  EXPECT_EQ(show("Sales")["file"], m_folder / "user/Sales.rcf");
  std::filesystem::remove(other);
  EXPECT_EQ(run({"rename", "Sales", "SALES"}).out, other + "\n") << "its own file may";
}

TEST_F(Definitions, TheOneWithoutANameIsNotDeletedByAnEmptyName) {
  const auto file = m_folder.write("user/nameless.rcf", "<VaultRepositoryInfo/>");
  EXPECT_EQ(run({"delete", ""}).status, 2);
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(run({"rename", "", "Named"}).out, (m_folder / "user/Named.rcf") + "\n");
}

// Another process that is changing definitions, as far as others can tell.
class Changing {
public:
  explicit Changing(const std::string& folder) : m_folder(open(folder.c_str(), O_RDONLY | O_DIRECTORY)) {
    EXPECT_EQ(flock(m_folder, LOCK_EX), 0);
  }
  ~Changing() { close(m_folder); }
  Changing(const Changing&) = delete;
  Changing& operator=(const Changing&) = delete;

private:
  int m_folder;
};

TEST_F(Definitions, OfTwoProcessesThatChangeThemOneIsRefused) {
  run({"create", "Sales"});
  const std::vector<std::vector<std::string>> changes{{"create", "Orders"},
                                                      {"set", "Sales", "--deactivate"},
                                                      {"rename", "Sales", "Stock"},
                                                      {"delete", "Sales"}};
  for (const char* folder : {"user", "system"}) {
    const Changing other(m_folder / folder);
    for (const auto& words : changes) {
      const auto refused = run(words);
      EXPECT_EQ(refused.status, 1) << words[0];
      EXPECT_EQ(refused.out, "");
      EXPECT_EQ(refused.err, "qvrepos: another process is changing the definitions in " +
                                 (m_folder / folder) + "; try again when it has ended\n");
    }
    EXPECT_EQ(run({"list"}).status, 0) << "looking is free";
  }
  EXPECT_EQ(show("Sales")["active"], true);
  for (const auto& words : {changes[0], changes[1], changes[3]})
    EXPECT_EQ(run(words).status, 0) << words[0];
}

TEST_F(Definitions, AKilledProcessLeavesNoLock) {
  const pid_t other = fork();
  ASSERT_NE(other, -1);
  if (other == 0) {
    const int folder = open((m_folder / "user").c_str(), O_RDONLY | O_DIRECTORY);
    if (flock(folder, LOCK_EX) != 0)
      _exit(1);
    raise(SIGSTOP);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(other, &status, WUNTRACED), other);
  ASSERT_TRUE(WIFSTOPPED(status));
  EXPECT_EQ(run({"create", "Sales"}).status, 1);
  kill(other, SIGKILL);
  waitpid(other, &status, 0);
  EXPECT_EQ(run({"create", "Sales"}).status, 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder / "user"), {}), 1) << "the file alone";
}

TEST_F(Definitions, BothTypesMayShareOneFolder) {
  const auto folder = m_folder / "user";
  const auto created = runTool({"definitions", "create", "Sales", "--set", "BASE/REPOS_SYS_PATH=" + folder,
                                "--set", "BASE/REPOS_USER_PATH=" + folder + "/."});
  EXPECT_EQ(created.status, 0) << created.err;
}

TEST_F(Definitions, AFolderThatIsNotThereYetIsLockedByTheOneThatItIsMadeIn) {
  const auto folder = m_folder / "user/new";
  const auto create = [&] {
    return runTool({"definitions", "create", "Sales", "--set", "BASE/REPOS_USER_PATH=" + folder});
  };
  {
    const Changing other(m_folder / "user");
    EXPECT_EQ(create().err, "qvrepos: another process is changing the definitions in " + folder +
                                "; try again when it has ended\n");
  }
  EXPECT_EQ(create().out, folder + "/Sales.rcf\n");
}

// The command with which a user who owns nothing runs the tool, when the test's own user may do everything.
std::vector<std::string> asNobody() {
  if (geteuid() != 0)
    return {toolPath};
  // The counters of a coverage build, which this user may not write, go nowhere.
  return {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "env", "LLVM_PROFILE_FILE=/dev/null",
          toolPath};
}

ProcessResult runAsNobody(const std::vector<std::string>& words) {
  auto command = asNobody();
  command.insert(command.end(), words.begin(), words.end());
  return runProcess(command);
}

// As a user without rights to them, whoever runs the test.
TEST_F(Definitions, AFolderThatCannotBeWrittenIsNamed) {
  run({"create", "Sales"});
  namespace fs = std::filesystem;
  fs::permissions(m_folder.path(), fs::perms(0755));
  fs::permissions(m_folder / "user", fs::perms(0555));
  const std::vector<std::vector<std::string>> changes{
      {"set", "Sales", "--deactivate"}, {"rename", "Sales", "Stock"}, {"delete", "Sales"}};
  for (const auto& change : changes) {
    std::vector<std::string> words{"definitions"};
    words.insert(words.end(), change.begin(), change.end());
    words.insert(words.end(), {"--set", "BASE/REPOS_USER_PATH=" + (m_folder / "user")});
    const auto refused = runAsNobody(words);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "qvrepos: " + (change[0] == "rename" ? "Stock" : change[1]) +
                               ": the definitions in " + (m_folder / "user") +
                               " cannot be changed: Permission denied\n");
  }
  fs::permissions(m_folder / "user", fs::perms(0755));
  EXPECT_EQ(show("Sales")["active"], true);
}

// In a folder where everybody may make files and delete their own alone.
TEST_F(Definitions, ARenameWhoseOldFileStaysSaysWhichOne) {
  if (geteuid() != 0)
    GTEST_SKIP() << "needs files of two users";
  run({"create", "Sales"});
  namespace fs = std::filesystem;
  fs::permissions(m_folder.path(), fs::perms(0755));
  fs::permissions(m_folder / "user", fs::perms(01777));
  const auto renamed = runAsNobody(
      {"definitions", "rename", "Sales", "Stock", "--set", "BASE/REPOS_USER_PATH=" + (m_folder / "user")});
  EXPECT_EQ(renamed.status, 1);
  EXPECT_EQ(renamed.out, (m_folder / "user/Stock.rcf") + "\n");
  EXPECT_EQ(
      renamed.err,
      "qvrepos: Stock: Access was denied trying to delete the definition; the old file stays, delete it: " +
          (m_folder / "user/Sales.rcf") + "\n");
}

// Many at once: one makes the definition, the others are told that it is there or that another one is at it.
TEST_F(Definitions, OfManyThatCreateOneDefinitionOneDoes) {
  const std::string tool =
      toolPath + " definitions create Sales --set BASE/REPOS_USER_PATH=" + (m_folder / "user");
  const auto all = runProcess(
      {"bash", "-c",
       "for i in 1 2 3 4 5 6; do " + tool + " 2>/dev/null & done; wait; ls " + (m_folder / "user")});
  EXPECT_EQ(all.out, (m_folder / "user/Sales.rcf") + "\nSales.rcf\n");
}

} // namespace
