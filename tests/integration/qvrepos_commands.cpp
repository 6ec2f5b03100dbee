#include "support/tool.h"

#include "qvreposres/qvreposobjecttypes.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>

using testing::AllOf;
using testing::ContainsRegex;
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
  EXPECT_THAT(
      run.err,
      HasSubstr(
          "qvrepos: no repository definition is named \"nowhere\"; `qvrepos definitions list` shows all\n"));
}

TEST(Qvrepos, DefinitionsDefaultPrintsTheFirstOneOrTheLibrarysMessage) {
  EXPECT_EQ(runTool({"definitions", "default", "--config", sampleConfig}).out, "Archive\n");
  const auto none = runTool({"definitions", "default"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "qvrepos: No repository definitions were found to load default definition from.\n" +
                          noFolderHint);
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
  EXPECT_EQ(make.err, "qvrepos: an identity of kind table needs --table\n");
  const auto parse = runTool({"identity", "parse", "no identity"});
  EXPECT_EQ(parse.status, 1);
  EXPECT_EQ(parse.err,
            "qvrepos: not a resource identity, which `qvrepos identity make` prints: no identity\n");
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
  EXPECT_EQ(plain.err, "qvrepos: no file name can be made of \"ftp://host/file\"; give a file URI, or a "
                       "repository URI with its "
                       "?type= and the name of a repository that `qvrepos definitions list` shows\n");
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
  EXPECT_EQ(
      none.err,
      "qvrepos: neither an object type nor an extension that has one: nothing; `qvrepos types` lists all\n");
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

TEST(Qvrepos, EverySubcommandHasHelpWithAnExampleAndPrintsJson) {
  const auto commands = leafCommands();
  EXPECT_EQ(commands.size(), 25U);
  for (const auto& command : commands) {
    const auto help = runProcess({"bash", "-c", toolPath + " " + command + " --help"});
    EXPECT_EQ(help.status, 0) << command;
    EXPECT_THAT(help.out, HasSubstr("\nExample: qvrepos " + command)) << command;
    EXPECT_THAT(help.out, ContainsRegex("--json +Print JSON: (a|an|the) ")) << command;
  }
}

// What each wrong use says: what is wrong, and where to read on.
TEST(Qvrepos, WrongUseSaysWhatToDoInstead) {
  const std::string all =
      "choose from lineage, resources, definitions, identity, uri, path, types, cache, version, graph, "
      "upstream, downstream, diff, audit\n";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{}, "qvrepos: a subcommand is missing; " + all},
      {{"lineag", "x"}, "qvrepos: there is no subcommand lineag; " + all},
      {{"--jsn"}, "qvrepos: there is no option --jsn before a subcommand; " + all},
      {{"lineage"}, "qvrepos lineage: PATH is required\n"},
      {{"lineage", "x", "-o", ""}, "qvrepos lineage: --output: must not be empty\n"},
      {{"cache", "get", ""}, "qvrepos cache get: URI: must not be empty\n"},
      {{"definitions", "create", "a\x01"},
       "qvrepos definitions create: NAME: holds what XML cannot carry: a\\x01\n"},
      {{"definitions", "create", "a", "--connect", "\xff"},
       "qvrepos definitions create: --connect: holds what XML cannot carry: \xff\n"},
      {{"identity", "make", "unified", "--id", "\x1b"},
       "qvrepos identity make unified: --id: holds what XML cannot carry: \\x1b\n"},
      {{"lineage", "x", "-o"}, "qvrepos lineage: --output: 1 required FILE missing\n"},
      {{"uri", "a", "b", "c"}, "qvrepos uri: not expected: b c\n"},
      {{"version", "--jsn"}, "qvrepos version: not expected: --jsn\n"},
      {{"definitions"},
       "qvrepos definitions: a subcommand is missing; choose from list, show, default, check, create, "
       "set, rename, delete\n"},
      {{"definitions", "shw"},
       "qvrepos definitions: there is no subcommand shw; choose from list, show, default, check, create, "
       "set, rename, delete\n"},
      {{"definitions", "create", "x", "--type", "y"},
       "qvrepos definitions create: --type: y not in {user,system}\n"},
      {{"definitions", "create", "a", "--connect", "\xef\xbf\xbe"},
       "qvrepos definitions create: --connect: holds what XML cannot carry: \xef\xbf\xbe\n"},
      {{"identity", "make", "table", "--table", "a\xef\xbf\xbf"},
       "qvrepos identity make table: --table: holds what XML cannot carry: a\xef\xbf\xbf\n"},
      {{"definitions", "delete", ""}, "qvrepos definitions delete: NAME: must not be empty\n"},
      {{"definitions", "set", "", "--activate"}, "qvrepos definitions set: NAME: must not be empty\n"},
      {{"definitions", "set", "Sales"},
       "qvrepos definitions set: an option that says what to change is required\n"},
      {{"definitions", "set", "Sales", "--activate", "--deactivate"},
       "qvrepos definitions set: --activate excludes --deactivate\n"},
      {{"identity", "make", "tble"},
       "qvrepos identity make: there is no subcommand tble; choose from file, unified, table, datasource\n"},
      {{"version", "--set", "novalue"}, "qvrepos version: --set: write it as KEY=VALUE: novalue\n"},
      {{"version", "--config", "/no/file"}, "qvrepos version: --config: File does not exist: /no/file\n"},
      {{"version", "--log-level", "7"}, "qvrepos version: --log-level: Value 7 not in range 1 to 6\n"}};
  for (const auto& [words, message] : cases) {
    const auto run = runTool(words);
    const auto command = message.substr(0, message.find(':'));
    EXPECT_EQ(run.status, 2) << message;
    EXPECT_EQ(run.out, "") << message;
    EXPECT_EQ(run.err, message + "`" + command + " --help` shows what it takes" +
                           (command == "qvrepos" ? "\n" : ", `qvrepos --help` what every command takes\n"));
  }
}

TEST(Qvrepos, InputThatNoCommandCanTakeFailsWithTheReason) {
  const TempDir folder;
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"uri", ""}, "a file name must not be empty"},
      {{"resources", ""}, "a file name must not be empty"},
      {{"lineage", ""}, "a file name must not be empty"},
      {{"resources", folder.path()}, folder.path().string() + ": a folder, where a job file is due"},
      {{"identity", "make", "file"}, "an identity of kind file needs --filename"},
      {{"identity", "make", "unified"}, "an identity of kind unified needs --id or --uuid"},
      {{"identity", "make", "datasource"}, "an identity of kind datasource needs --dsn"}};
  for (const auto& [words, message] : cases) {
    const auto run = runTool(words);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.out, "") << message;
    EXPECT_EQ(run.err, "qvrepos: " + message + "\n");
  }
}

TEST(Qvrepos, OptionsThatNobodyReadsComeWithAHint) {
  const auto run = runTool({"version", "--set", "BASE/REPO_SYS_PATH=/x"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "qvrepos: no option is named BASE/REPO_SYS_PATH; the manual page lists all\n");
  EXPECT_EQ(runTool({"version", "--set", "base/repos_sys_path=/x"}).err, "");
}

TEST(Qvrepos, TargetsThatCannotBeFilesAreNamedWithTheReason) {
  const TempDir folder;
  const auto source = folder.write("source", "content");
  const std::vector<std::pair<std::string, std::string>> cases{
      {folder.path(), "it is a folder; name a file in it"},
      {folder / "missing/file", "there is no folder " + (folder / "missing")},
      {"/dev/null", "it is not a regular file; redirect standard output to it instead"}};
  for (const auto& [target, reason] : cases) {
    const auto message = "qvrepos: cannot write " + target + ": " + reason + "\n";
    EXPECT_EQ(runTool({"lineage", "-q", folder.path(), "-o", target}).err, message);
    if (target != folder.path()) { // into a folder the copy goes by its own name
      EXPECT_EQ(runTool({"cache", "get", source, "-o", target}).err, message);
    }
  }
}

TEST(Qvrepos, TargetsMayBeFileUris) {
  const TempDir folder;
  const auto source = folder.write("source", "content");
  EXPECT_EQ(runTool({"cache", "get", source, "-o", "file://" + (folder / "a%20copy")}).out,
            (folder / "a copy") + "\n");
  EXPECT_EQ(folder.read("a copy"), "content");
  EXPECT_EQ(runTool({"lineage", "-q", folder.path(), "-o", "file://" + (folder / "out.xml")}).status, 0);
  EXPECT_THAT(folder.read("out.xml"), HasSubstr("<RelationshipModels/>"));
}

TEST(Qvrepos, EmptyResultsComeWithAHintUnlessItIsQuiet) {
  const TempDir folder;
  const auto jobs = runTool({"lineage", folder.path()});
  EXPECT_EQ(jobs.status, 0);
  EXPECT_EQ(jobs.err, "qvrepos: no job files were found: their extensions are djf, dmc, ddf, xsq\n");
  EXPECT_EQ(runTool({"lineage", "--quiet", folder.path()}).err, "");
  const auto definitions = runTool({"definitions", "list"});
  EXPECT_EQ(definitions.status, 0);
  EXPECT_EQ(definitions.err, noFolderHint);
  EXPECT_EQ(runTool({"definitions", "list", "-q"}).err, "");
}

TEST(Qvrepos, VersionIsAFlagToo) {
  const auto run = runTool({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, runTool({"version"}).out);
}

TEST(Qvrepos, ControlCharactersInNamesCannotBreakATable) {
  const TempDir folder;
  const auto job = folder.write("evil\n\x1b[31mname.djf", "<SQLUpdateRows/>");
  const auto run = runTool({"resources", job});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("evil\\n\\x1b[31mname"));
}

} // namespace
