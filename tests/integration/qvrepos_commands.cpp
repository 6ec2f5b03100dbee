#include "support/tool.h"

#include "qvreposres/qvreposobjecttypes.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;

namespace {

TEST(Qvrepos, ResourcesListsTheJobFirstAndThenWhatItTouches) {
  const auto run =
      runTool({"resources", "--config", sampleConfig, sampleRepository + "/batch_jobs/clean_stores.djf"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "TYPE        NAME                         LOCATION\n"
            "ProcessJob  clean_stores                 qvr://Sales/batch_jobs/clean_stores?type=ProcessJob\n"
            "Database    DSN=Warehouse;QVXTYPE=ODBC;  qvd:///Warehouse?type=ODBC\n"
            "Table       stores                       qvd:///Warehouse?schema=dw&table=stores\n"
            "Database                                 qvd:///Warehouse\n"
            "Table       stores                       qvd:///Warehouse?schema=staging&table=stores\n"
            "Table       countries                    <morvaxeldocument class=\"tableresource\" "
            "version=\"1\"><resource>"
            "<tabledatasource dsn=\"\" dsntype=\"\" table=\"countries\"/></resource></morvaxeldocument>\n");
}

TEST(Qvrepos, ResourcesAsJsonCarryTheIdentity) {
  const auto run = runTool(
      {"resources", "--json", "--config", sampleConfig, sampleRepository + "/batch_jobs/load_calendar.djf"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, AllOf(HasSubstr(R"("type": "Table")"), HasSubstr(R"("name": "holidays")"),
                             HasSubstr(R"(table=\"holidays\")")));
}

TEST(Qvrepos, ResourcesOfAMalformedFileFailWithLineAndColumn) {
  const auto run = runTool({"resources", sampleRepository + "/batch_jobs/broken_export.djf"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, HasSubstr("broken_export.djf:9:1: "));
}

TEST(Qvrepos, DefinitionsListShowsEveryLoadedDefinitionInLoadOrder) {
  const auto run = runTool({"definitions", "list", "--config", sampleConfig});
  EXPECT_EQ(run.status, 0);
  const std::string folder = QV_BINARY_DIR "/examples/";
  EXPECT_EQ(run.out, "NAME     TYPE    CONNECTION  STATE     FILE\n"
                     "Archive  system  File        active    " +
                         folder +
                         "system/archive.rcf\n"
                         "Sales    system  ODBC        active    " +
                         folder +
                         "system/sales.rcf\n"
                         "Ledger   user    GRVS        active    " +
                         folder +
                         "user/ledger.rcf\n"
                         "Sandbox  user    File        inactive  " +
                         folder + "user/sandbox.rcf\n");
  EXPECT_THAT(run.err, HasSubstr("will not be loaded because a definition with that name already exists."));
}

TEST(Qvrepos, DefinitionsShowFindsANameInAnyCase) {
  const auto run = runTool({"definitions", "show", "sales", "--json", "--config", sampleConfig});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, AllOf(HasSubstr(R"("name": "Sales")"), HasSubstr(R"("schema": "repos")"),
                             HasSubstr(R"("prefix": "SLS_")"), HasSubstr(sampleRepository)));
  const auto table = runTool({"definitions", "show", "Ledger", "--config", sampleConfig});
  EXPECT_THAT(table.out, HasSubstr("connection         GRVS\n"));
}

TEST(Qvrepos, DefinitionsShowNamesWhatItDoesNotFind) {
  const auto run = runTool({"definitions", "show", "nowhere", "--config", sampleConfig});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("qvrepos: no repository definition is named nowhere\n"));
}

TEST(Qvrepos, DefinitionsDefaultPrintsTheFirstOneOrTheLibrarysMessage) {
  EXPECT_EQ(runTool({"definitions", "default", "--config", sampleConfig}).out, "Archive\n");
  const auto none = runTool({"definitions", "default"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "qvrepos: No repository definitions were found to load default definition from.\n");
}

TEST(Qvrepos, IdentitiesReadBackToWhatWasGiven) {
  const std::string odd = "a \"b\" & <c>\n\t]]> é";
  const std::vector<std::vector<std::string>> cases{
      {"file", "--filename", "/data/" + odd, "--name", odd},
      {"unified", "--type", "Rule", "--id", odd, "--uuid", "u"},
      {"table", "--dsn", odd, "--dsntype", "ODBC", "--catalog", odd, "--schema", "s", "--table", odd},
      {"datasource", "--dsn", odd, "--dsntype", "GRVS"}};
  for (const auto& words : cases) {
    std::vector<std::string> make{"identity", "make"};
    make.insert(make.end(), words.begin(), words.end());
    auto identity = runTool(make).out;
    ASSERT_FALSE(identity.empty()) << words[0];
    identity.pop_back(); // the line feed that ends the output
    const auto parsed = nlohmann::ordered_json::parse(runTool({"identity", "parse", "--json", identity}).out);
    EXPECT_EQ(parsed["kind"], words[0]);
    for (std::size_t i = 1; i + 1 < words.size(); i += 2)
      EXPECT_EQ(parsed[words[i].substr(2)], words[i + 1]) << words[0] << " " << words[i];
  }
}

TEST(Qvrepos, IdentityFailuresSayWhatIsNeeded) {
  const auto make = runTool({"identity", "make", "table", "--dsn", "Sales"});
  EXPECT_EQ(make.status, 1);
  EXPECT_EQ(make.err, "qvrepos: an identity of kind table needs table\n");
  const auto parse = runTool({"identity", "parse", "no identity"});
  EXPECT_EQ(parse.status, 1);
  EXPECT_EQ(parse.err, "qvrepos: not a resource identity: no identity\n");
}

TEST(Qvrepos, UriAndPathAreEachOthersInverse) {
  const std::string job = sampleRepository + "/batch_jobs/clean_orders.djf";
  const auto uri = runTool({"uri", job, "--config", sampleConfig});
  EXPECT_EQ(uri.out, "qvr://Sales/batch_jobs/clean_orders?type=ProcessJob\n");
  EXPECT_EQ(
      runTool({"path", "qvr://Sales/batch_jobs/clean_orders?type=ProcessJob", "--config", sampleConfig}).out,
      job + "\n");
  EXPECT_EQ(runTool({"uri", "/no/repository/a b.txt"}).out, "file:///no/repository/a%20b.txt\n");
  EXPECT_EQ(runTool({"path", "file:///no/repository/a%20b.txt"}).out, "/no/repository/a b.txt\n");
}

TEST(Qvrepos, PathReportsWhyThereIsNone) {
  const auto plain = runTool({"path", "ftp://host/file"});
  EXPECT_EQ(plain.status, 1);
  EXPECT_EQ(plain.err, "qvrepos: no file name can be made of ftp://host/file\n");
  const auto named = runTool({"path", "ftp://host/file", "--repository", "Sales"});
  EXPECT_EQ(named.status, 1);
  EXPECT_EQ(named.err,
            "qvrepos: The URI ftp://host/file is not a supported format to convert into filename.\n");
}

TEST(Qvrepos, TypesListsEveryExtensionThatTheLibraryKnows) {
  const auto rows = nlohmann::json::parse(runTool({"types", "--json"}).out);
  EXPECT_EQ(rows.size(), 42U);
  for (const auto& row : rows) {
    QvbString type;
    EXPECT_TRUE(getTypeForFileExtension(row["extension"].get<std::string>().c_str(), &type));
    EXPECT_EQ(row["type"], std::string(type.view()));
  }
}

TEST(Qvrepos, TypesFindsBothWays) {
  EXPECT_EQ(runTool({"types", "ProcessJob"}).out, "TYPE        EXTENSION\nProcessJob  djf\n");
  EXPECT_EQ(runTool({"types", "CHP.qkb"}).out, "TYPE       EXTENSION\nChopTable  chp.qkb\n");
  EXPECT_EQ(runTool({"types", "AncestryFile"}).out, "TYPE          EXTENSION\nAncestryFile  anc\n");
  const auto none = runTool({"types", "nothing"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "qvrepos: neither an object type nor an extension that has one: nothing\n");
}

TEST(Qvrepos, VersionPrintsTheBuild) {
  EXPECT_EQ(runTool({"version"}).out, "Repository Resource Library version 2.1 (build 46)\n");
  EXPECT_EQ(nlohmann::json::parse(runTool({"version", "--json"}).out)["build"], 46);
}

TEST(Qvrepos, OptionsOfTheCommandLineWinOverTheFile) {
  const auto run =
      runTool({"resources", "--config", sampleConfig, "--set", "BASE/REPOS_SYS_PATH=", "--log-level", "6",
               sampleRepository + "/batch_jobs/load_calendar.djf"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("file://" + sampleRepository + "/batch_jobs/load_calendar.djf"));
}

TEST(Qvrepos, LogLevelShowsTheLibrarysRecords) {
  EXPECT_EQ(runTool({"version"}).err, "");
  EXPECT_THAT(runTool({"version", "--log-level", "2"}).err,
              HasSubstr("Startup of QvRepos Event Manager, ClientId="));
}

TEST(Qvrepos, EverySubcommandHasHelpWithAnExample) {
  const std::vector<std::vector<std::string>> commands{
      {"lineage"}, {"resources"}, {"definitions"}, {"identity", "make"}, {"identity", "parse"},
      {"uri"},     {"path"},      {"types"},       {"version"}};
  for (auto words : commands) {
    words.push_back("--help");
    const auto help = runTool(words);
    EXPECT_EQ(help.status, 0) << words[0];
    EXPECT_THAT(help.out, HasSubstr("Example: qvrepos ")) << words[0];
  }
}

TEST(Qvrepos, ControlCharactersInNamesCannotBreakATable) {
  const TempDir folder;
  const auto job = folder.write("evil\n\x1b[31mname.djf", "<SQLUpdateRows/>");
  const auto run = runTool({"resources", job});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("evil\\n\\x1b[31mname"));
}

} // namespace
