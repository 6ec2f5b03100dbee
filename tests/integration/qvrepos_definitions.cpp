#include "support/tooldefinitions.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <regex>

#include <sys/stat.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

TEST_F(Definitions, CheckIsSilentAboutFilesThatLoad) {
  m_folder.write("system/a.rcf", definition("A"));
  m_folder.write("user/nested.rcf", "<x>" + definition("B") + "</x>");
  m_folder.write("user/readme.txt", "no definition");
  const auto check = run({"check"});
  EXPECT_EQ(check.status, 0) << check.err;
  EXPECT_EQ(check.out, "2 definitions loaded\n");
}

// What the library writes is what there is to show.
TEST_F(Definitions, ShowHasEveryFieldOfTheFile) {
  ASSERT_EQ(run({"create", "A"}).status, 0);
  const auto xml = m_folder.read("user/A.rcf");
  std::vector<std::string> values;
  const auto fill = [&](const std::string& element) {
    if (element == "UnifiedRepositoryType")
      return std::string("GRVS");
    values.push_back("value of " + element);
    return values.back();
  };
  const std::regex element("<(\\w+)(/>|>[^<\\n]*</\\w+>)\n");
  std::string filled;
  auto rest = xml.cbegin();
  for (std::smatch match; std::regex_search(rest, xml.cend(), match, element); rest = match.suffix().first)
    filled +=
        match.prefix().str() + "<" + match.str(1) + ">" + fill(match.str(1)) + "</" + match.str(1) + ">\n";
  m_folder.write("user/A.rcf", filled + std::string(rest, xml.cend()));
  EXPECT_GE(values.size(), 6U);
  const auto shown = run({"show", "A"}).out;
  for (const auto& value : values)
    EXPECT_THAT(shown, HasSubstr(value));
  EXPECT_THAT(shown, HasSubstr("GRVS"));
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

TEST_F(Definitions, CheckReportsAFolderThatCannotBeRead) {
  std::filesystem::remove(m_folder.path() / "system");
  const auto check = run({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.err, HasSubstr("qvrepos: BASE/REPOS_SYS_PATH: "));
}

} // namespace
