#include "support/tool.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>

#include <sys/stat.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

// A system folder and a user folder of the test's own.
class Definitions : public testing::Test {
protected:
  Definitions() {
    std::filesystem::create_directory(m_folder.path() / "system");
    std::filesystem::create_directory(m_folder.path() / "user");
  }
  ProcessResult run(std::vector<std::string> words) const {
    words.insert(words.begin(), "definitions");
    for (const char* setting : {"SYS", "USER"}) {
      words.emplace_back("--set");
      words.push_back("BASE/REPOS_" + std::string(setting) +
                      "_PATH=" + (m_folder / (setting == std::string("SYS") ? "system" : "user")));
    }
    return runTool(words);
  }
  nlohmann::json show(const std::string& name) const {
    return nlohmann::json::parse(run({"show", name, "--json"}).out);
  }
  std::string definition(const std::string& name) const {
    return "<VaultRepositoryInfo Name=\"" + name + "\"/>";
  }

  const TempDir m_folder;
};

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
  EXPECT_EQ(again.err, "qvrepos: SALES: there is a definition of that name already\n");
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
  EXPECT_EQ(renamed.err, "qvrepos: two: there is a definition of that name already\n");
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

TEST_F(Definitions, CheckIsSilentAboutFilesThatLoad) {
  m_folder.write("system/a.rcf", definition("A"));
  m_folder.write("user/nested.rcf", "<x>" + definition("B") + "</x>");
  m_folder.write("user/readme.txt", "no definition");
  const auto check = run({"check"});
  EXPECT_EQ(check.status, 0) << check.err;
  EXPECT_EQ(check.out, "2 definitions loaded\n");
}

TEST_F(Definitions, CheckReportsEveryFileThatWouldNotLoadAndWhy) {
  const auto winner = m_folder.write("system/sales.rcf", definition("Sales"));
  const auto loser = m_folder.write("user/copy.rcf", definition("SALES"));
  const auto other = m_folder.write("user/other.rcf", "<html/>");
  const auto broken = m_folder.write("user/broken.rcf", "<VaultRepositoryInfo\n  Name=>");
  const auto check = run({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "1 definition loaded\n");
  EXPECT_THAT(check.err,
              AllOf(HasSubstr(loser + ": a definition named \"SALES\" is loaded from " + winner + "\n"),
                    HasSubstr("The file \"" + other + "\" is not a valid definition file.\n"),
                    HasSubstr(broken + ":2:"), Not(HasSubstr(winner + ":"))));
}

TEST_F(Definitions, ListsWithoutThoseThatWouldNotLoadSaySoAndFail) {
  m_folder.write("system/a.rcf", definition("A"));
  m_folder.write("user/copy.rcf", definition("a"));
  EXPECT_EQ(run({"list"}).status, 0); // the library warns of a duplicate; nothing is missing
  m_folder.write("user/broken.rcf", "<VaultRepositoryInfo");
  const std::string hint =
      "qvrepos: 1 file or folder of definitions was not loaded; `qvrepos definitions check` says why\n";
  const auto list = run({"list", "--json"});
  EXPECT_EQ(list.status, 1);
  EXPECT_EQ(nlohmann::json::parse(list.out).size(), 1U);
  EXPECT_THAT(list.err, HasSubstr(hint));
  EXPECT_EQ(std::count(list.err.begin(), list.err.end(), '\n'), 2) << list.err; // that, and one warning
  EXPECT_THAT(run({"show", "B"}).err, HasSubstr(hint));
  std::filesystem::remove_all(m_folder.path() / "user");
  const auto noFolder = run({"list"});
  EXPECT_EQ(noFolder.status, 1);
  EXPECT_THAT(noFolder.err, HasSubstr(hint));
}

TEST_F(Definitions, CheckReportsWhatIsNoFileWithoutOpeningIt) {
  const auto pipe = m_folder / "user/pipe.rcf";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::filesystem::create_symlink("nowhere", m_folder.path() / "user/link.rcf");
  const auto check = run({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, "qvrepos: " + (m_folder / "user/link.rcf") + ": not a regular file\nqvrepos: " + pipe +
                           ": not a regular file\n");
}

TEST_F(Definitions, CheckAsJsonTellsWhatIsLoadedAndWhatIsRefused) {
  const auto good = m_folder.write("system/a.rcf", definition("A"));
  const auto other = m_folder.write("user/other.rcf", "<html/>");
  const auto check = run({"check", "--json"});
  EXPECT_EQ(check.status, 1);
  const nlohmann::json expected{
      {"loaded", {good}},
      {"refused",
       {{{"file", other}, {"reason", "The file \"" + other + "\" is not a valid definition file."}}}}};
  EXPECT_EQ(nlohmann::json::parse(check.out), expected);
  EXPECT_EQ(check.err, "qvrepos: The file \"" + other + "\" is not a valid definition file.\n");
}

TEST_F(Definitions, CheckTakesFoldersAsUris) {
  m_folder.write("user/a.rcf", definition("A"));
  m_folder.write("user/b.rcf", "<html/>");
  const auto check =
      runTool({"definitions", "check", "--set", "BASE/REPOS_USER_PATH=file://" + (m_folder / "user")});
  EXPECT_EQ(check.out, "1 definition loaded\n");
  EXPECT_THAT(check.err, HasSubstr(m_folder / "user/b.rcf"));
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

TEST_F(Definitions, CheckReportsAFolderThatCannotBeRead) {
  std::filesystem::remove(m_folder.path() / "system");
  const auto check = run({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.err, HasSubstr("qvrepos: BASE/REPOS_SYS_PATH: "));
}

} // namespace
