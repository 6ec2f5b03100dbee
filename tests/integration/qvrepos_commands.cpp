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

TEST(Qvrepos, WhatIsNoIdentityIsNamed) {
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

TEST(Qvrepos, PathSaysOfAFileUriThatItNamesNoFileHere) {
  for (const std::string uri : {"file:///%00", "FILE://host/x"}) {
    const auto run = runTool({"path", uri});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "qvrepos: \"" + uri + "\" names no file of this machine\n");
  }
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
  EXPECT_EQ(runTool({"types", "processjob"}).out, "TYPE        EXTENSION\nProcessJob  djf\n");
  EXPECT_EQ(runTool({"types", ".DJF"}).out, "TYPE        EXTENSION\nProcessJob  djf\n");
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
      {{"lineag", "x"}, "qvrepos: there is no subcommand lineag; did you mean lineage?\n"},
      {{"frobnicate"}, "qvrepos: there is no subcommand frobnicate; " + all},
      {{"help", "lineag"}, "qvrepos: there is no subcommand lineag; did you mean lineage?\n"},
      {{"--jsn"}, "qvrepos: there is no option --jsn before a subcommand; " + all},
      {{"lineage"}, "qvrepos lineage: PATH is missing\n"},
      {{"lineage", "x", "-o", ""}, "qvrepos lineage: --output: must not be empty\n"},
      {{"cache", "get", ""}, "qvrepos cache get: URI: must not be empty\n"},
      {{"lineage", ""}, "qvrepos lineage: PATH: must not be empty\n"},
      {{"resources", ""}, "qvrepos resources: FILE: must not be empty\n"},
      {{"uri", ""}, "qvrepos uri: FILE: must not be empty\n"},
      {{"path", ""}, "qvrepos path: URI: must not be empty\n"},
      {{"types", ""}, "qvrepos types: NAME: must not be empty\n"},
      {{"definitions", "show", ""}, "qvrepos definitions show: NAME: must not be empty\n"},
      {{"definitions", "create", "--", "-d2", "--set", "K=V"},
       "qvrepos definitions create: not expected: --set K=V\n"},
      {{"definitions", "create", "a\x01"},
       "qvrepos definitions create: NAME: holds what XML cannot carry: a\\x01\n"},
      {{"definitions", "create", "a", "--connect", "\xff"},
       "qvrepos definitions create: --connect: holds what XML cannot carry: \xff\n"},
      {{"identity", "make", "unified", "--id", "\x1b"},
       "qvrepos identity make unified: --id: holds what XML cannot carry: \\x1b\n"},
      {{"lineage", "x", "-o"}, "qvrepos lineage: --output: a value is missing: FILE\n"},
      {{"version", "--config"}, "qvrepos version: --config: a value is missing: FILE\n"},
      {{"version", "--config", "a", "--config", "b"}, "qvrepos version: --config is given more than once\n"},
      {{"lineage", "x", "--compact=1"}, "qvrepos lineage: --compact takes no value\n"},
      {{"uri", "a", "b", "c"}, "qvrepos uri: not expected: b c\n"},
      {{"version", "--jsn"}, "qvrepos version: there is no option --jsn; did you mean --json?\n"},
      {{"version", "--frobnicate=1"}, "qvrepos version: there is no option --frobnicate\n"},
      {{"version", "--confg", "x"}, "qvrepos version: there is no option --confg; did you mean --config?\n"},
      {{"definitions"},
       "qvrepos definitions: a subcommand is missing; choose from list, show, default, check, create, "
       "set, rename, delete\n"},
      {{"definitions", "shw"}, "qvrepos definitions: there is no subcommand shw; did you mean show?\n"},
      {{"definitions", "create", "x", "--type", "y"},
       "qvrepos definitions create: --type: there is no y; choose from user, system\n"},
      {{"definitions", "create", "a", "--connect", "\xef\xbf\xbe"},
       "qvrepos definitions create: --connect: holds what XML cannot carry: \xef\xbf\xbe\n"},
      {{"identity", "make", "table", "--table", "a\xef\xbf\xbf"},
       "qvrepos identity make table: --table: holds what XML cannot carry: a\xef\xbf\xbf\n"},
      {{"definitions", "delete", ""}, "qvrepos definitions delete: NAME: must not be empty\n"},
      {{"definitions", "set", "", "--activate"}, "qvrepos definitions set: NAME: must not be empty\n"},
      {{"definitions", "set", "Sales"},
       "qvrepos definitions set: an option that says what to change is missing\n"},
      {{"definitions", "set", "Sales", "--activate", "--deactivate"},
       "qvrepos definitions set: --activate and --deactivate do not go together; give one of them\n"},
      {{"identity", "make", "tble"},
       "qvrepos identity make: there is no subcommand tble; did you mean table?\n"},
      {{"identity", "make", "table", "--dsn", "Sales"},
       "qvrepos identity make table: an identity of kind table needs --table\n"},
      {{"identity", "make", "file"},
       "qvrepos identity make file: an identity of kind file needs --filename\n"},
      {{"identity", "make", "unified"},
       "qvrepos identity make unified: an identity of kind unified needs --id or --uuid\n"},
      {{"identity", "make", "datasource"},
       "qvrepos identity make datasource: an identity of kind datasource needs --dsn\n"},
      {{"graph", "x", "--format", "pdf"},
       "qvrepos graph: --format: there is no pdf; choose from table, tree, json, csv, dot, mermaid, svg, "
       "png, "
       "html, openlineage\n"},
      {{"graph", "x", "--threads", "many"},
       "qvrepos graph: --threads: not a whole number from 1 to 256: many\n"},
      {{"upstream", "n", "x", "--depth", "-1"},
       "qvrepos upstream: --depth: not a whole number from 0 to 4294967295: -1\n"},
      {{"version", "--set", "novalue"}, "qvrepos version: --set: write it as KEY=VALUE: novalue\n"},
      {{"version", "--config", ""}, "qvrepos version: --config: must not be empty\n"},
      {{"version", "--log-level", "7"},
       "qvrepos version: --log-level: there is no level 7; choose from trace, debug, info, warning, error, "
       "critical, or 1 to 6\n"}};
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
  const auto empty = folder.write("empty.djf", "");
  const auto words = folder.write("words.djf", "hello");
  const std::string none = "\nqvrepos: 0 resources; 1 file failed";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"lineage", "file:"}, "a file name must not be empty"},
      {{"resources", folder.path()},
       folder.path().string() +
           ": a folder, where a job file is due; `qvrepos lineage` and `qvrepos graph` take folders" + none},
      {{"resources", "/dev/null"},
       "/dev/null: no regular file, where a job file is due; - stands for standard input" + none},
      {{"resources", empty}, empty + ":1:1: the document is empty" + none},
      {{"resources", words}, words + ":1:1: this is no XML, which begins with \"<\"" + none},
      {{"version", "--config", "/no/file"},
       "/no/file: cannot read the option file: not found; --config names it"},
      {{"version", "--config", folder.path()},
       folder.path().string() + ": no regular file, where an option file is due; --config names it"},
      {{"version", "--config", words}, words + ":1: malformed option line; --config names it"},
      {{"uri", sampleRepository, "--config", sampleConfig},
       sampleRepository + ": a repository's own folder has no URI; name a file in it"}};
  for (const auto& [command, message] : cases) {
    const auto run = runTool(command);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.out, "") << message;
    EXPECT_EQ(run.err, "qvrepos: " + message + "\n");
  }
}

TEST(Qvrepos, OptionsThatNobodyReadsComeWithAHint) {
  const auto run = runTool({"version", "--set", "BASE/REPO_SYS_PATH=/x"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "qvrepos: no option is named BASE/REPO_SYS_PATH; did you mean BASE/REPOS_SYS_PATH?\n");
  EXPECT_EQ(runTool({"version", "--set", "x=1"}).err,
            "qvrepos: no option is named x; the manual page lists all\n");
  EXPECT_EQ(runTool({"version", "--set", "base/repos_sys_path=/x"}).err, "");
}

TEST(Qvrepos, TargetsThatCannotBeFilesAreNamedWithTheReason) {
  const TempDir folder;
  const auto source = folder.write("source", "content");
  const std::vector<std::pair<std::string, std::string>> cases{
      {folder.path(), "it is a folder; name a file in it"},
      {folder / "missing/file", "there is no folder " + (folder / "missing") + "; make it first"},
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
  EXPECT_EQ(jobs.err,
            "qvrepos: no job files were found: their extensions are djf, dmc, ddf, xsq\nqvrepos: 0 jobs\n");
  EXPECT_EQ(runTool({"lineage", "--quiet", folder.path()}).err, "");
  const auto definitions = runTool({"definitions", "list"});
  EXPECT_EQ(definitions.status, 0);
  EXPECT_EQ(definitions.err, noFolderHint);
  EXPECT_EQ(runTool({"definitions", "list", "-q"}).err, "");
}

TEST(Qvrepos, AFolderWithoutJobFilesIsAFailureWhereThatIsWanted) {
  const TempDir folder;
  const std::string message = "qvrepos: no job files were found: their extensions are djf, dmc, ddf, xsq\n";
  for (const char* command : {"lineage", "graph", "audit"}) {
    EXPECT_EQ(runTool({command, folder.path()}).status, 0) << command;
    EXPECT_THAT(runTool({command, folder.path()}).err, HasSubstr(message)) << command;
    const auto run = runTool({command, folder.path(), "--fail-if-empty"});
    EXPECT_EQ(run.status, 1) << command;
    EXPECT_THAT(run.err, HasSubstr(message)) << command;
    EXPECT_EQ(runTool({command, sampleRepository + "/data_services", "--fail-if-empty"}).status, 0)
        << command;
  }
}

TEST(Qvrepos, StandardInputAndPipesAreReadLikeFiles) {
  const TempDir folder;
  const auto job = folder.write("job.djf", "<SQLUpdateRows><x");
  for (const std::string command : {"lineage", "resources", "graph"}) {
    const auto file = runTool({command, job}).err;
    const auto expected = [&](const std::string& name) {
      return std::regex_replace(file, std::regex(job), name);
    };
    EXPECT_EQ(runProcess({"bash", "-c", toolPath + " " + command + " - <" + job}).err, expected("-"));
    const auto pipe = runProcess({"bash", "-c", toolPath + " " + command + " <(cat " + job + ")"}).err;
    EXPECT_EQ(std::regex_replace(pipe, std::regex("/dev/fd/[0-9]+"), "-"), expected("-")) << command;
  }
  const std::string whole = sampleRepository + "/batch_jobs/load_calendar.djf";
  EXPECT_THAT(runProcess({"bash", "-c", "cat " + whole + " | " + toolPath + " resources -"}).out,
              HasSubstr("holidays"));
}

TEST(Qvrepos, ADashIsStandardOutput) {
  const std::string job = sampleRepository + "/batch_jobs/load_calendar.djf";
  EXPECT_EQ(runTool({"lineage", job, "-o", "-"}).out, runTool({"lineage", job}).out);
  EXPECT_EQ(runTool({"graph", job, "-o", "-"}).out, runTool({"graph", job}).out);
}

TEST(Qvrepos, FilesThatShareAUriAreNamed) {
  const TempDir folder;
  const auto one = folder.write("a/b.djf", "<SQLUpdateRows/>");
  const auto other = folder.write("a\\b.djf", "<SQLUpdateRows/>");
  const std::string message = "qvrepos: " + other + " and " + one +
                              " have one URI reference, as a backslash counts as a slash: rename one of "
                              "them\n";
  EXPECT_EQ(runTool({"lineage", folder.path()}).err, message + "qvrepos: 2 jobs\n");
  EXPECT_THAT(runTool({"graph", folder.path()}).err, HasSubstr(message));
  EXPECT_EQ(runTool({"lineage", folder / "a"}).err, "qvrepos: 1 job\n");
}

TEST(Qvrepos, HelpIsACommandToo) {
  EXPECT_EQ(runTool({"help", "lineage"}).out, runTool({"lineage", "--help"}).out);
  EXPECT_EQ(runTool({"help", "definitions", "set"}).out, runTool({"definitions", "set", "--help"}).out);
  EXPECT_EQ(runTool({"help"}).out, runTool({"--help"}).out);
}

TEST(Qvrepos, ChoicesAreTakenInAnyCase) {
  const std::string job = sampleRepository + "/batch_jobs/load_calendar.djf";
  EXPECT_EQ(runTool({"graph", job, "--format", "CSV", "--view", "Jobs"}).out,
            runTool({"graph", job, "--format", "csv", "--view", "jobs"}).out);
  EXPECT_EQ(runTool({"graph", job, "--format", "CSV"}).status, 0);
  EXPECT_THAT(runTool({"version", "--log-level", "Debug"}).err,
              HasSubstr("Startup of QvRepos Event Manager"));
}

TEST(Qvrepos, OptionsComeFromTheNamedFileOrTheUsersOwn) {
  const TempDir folder;
  const auto own = folder.write("qvrepos.ini", "[BASE]\nREPOS_USER_PATH=" + (folder / "own") + "\n");
  const auto other = folder.write("other.ini", "[BASE]\nREPOS_USER_PATH=" + (folder / "other") + "\n");
  const std::vector<std::string> environment{"XDG_CONFIG_HOME=" + folder.path().string()};
  const auto create = [&](std::vector<std::string> words, std::vector<std::string> extra = {}) {
    words.insert(words.begin(), {"definitions", "create", "Sales"});
    extra.insert(extra.end(), environment.begin(), environment.end());
    return runTool(words, extra).out;
  };
  EXPECT_EQ(create({}), (folder / "own/Sales.rcf") + "\n");
  EXPECT_EQ(create({"--config", other}), (folder / "other/Sales.rcf") + "\n");
  EXPECT_EQ(create({"--set", "BASE/REPOS_USER_PATH=" + (folder / "set")}), (folder / "set/Sales.rcf") + "\n");
  const auto missing = runTool({"version"}, {"QV_CONFIG=/no/file"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "qvrepos: /no/file: cannot read the option file: not found; QV_CONFIG names it\n");
}

TEST(Qvrepos, CompletionsOfferOptionKeysTypesAndDefinitions) {
  const TempDir folder;
  runTool({"definitions", "create", "My Sales", "--set", "BASE/REPOS_USER_PATH=" + folder.path().string()});
  const auto config = folder.write("x.ini", "[BASE]\nREPOS_USER_PATH=" + folder.path().string() + "\n");
  const auto complete = [&](const std::string& words) {
    return runProcess({"bash", "-c",
                       "PATH=" QV_BINARY_DIR "/bin:$PATH; source " QV_BINARY_DIR
                       "/share/bash-completion/completions/qvrepos; COMP_WORDS=(" +
                           words +
                           "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qvrepos; printf '%s\n' "
                           "\"${COMPREPLY[@]}\""},
                      {"QV_CONFIG=" + config})
        .out;
  };
  EXPECT_EQ(complete("qvrepos version --set BASE/REPOS_S"), "BASE/REPOS_SYS_PATH=\n");
  EXPECT_EQ(complete("qvrepos types ProcessJobS"), "ProcessJobState\n");
  EXPECT_EQ(complete("qvrepos definitions show M"), "My\\ Sales\n");
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
