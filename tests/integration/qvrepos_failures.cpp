// What cannot be written is reported, whichever the subcommand, and an interrupt leaves nothing half done.
#include "support/httpserver.h"
#include "support/tool.h"

#include <gmock/gmock.h>

#include <csignal>
#include <set>
#include <sstream>

#include <unistd.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsSubsetOf;
using testing::Not;

namespace {

using Words = std::vector<std::string>;

const std::string job = sampleRepository + "/batch_jobs/clean_orders.djf";

std::vector<std::string> filesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    if (!entry.is_directory())
      names.push_back(entry.path().filename().string());
  return names;
}

// Every subcommand with words that make it print something, in an order in which each succeeds.
std::vector<Words> printingCommands(const TempDir& folder) {
  const std::string definitions = "BASE/REPOS_USER_PATH=" + (folder / "definitions");
  std::vector<Words> commands{
      {"lineage", job},
      {"resources", job},
      {"graph", job},
      {"upstream", "dw.orders", job},
      {"downstream", "staging.orders", job},
      {"diff", job, sampleRepository + "/batch_jobs/load_calendar.djf"},
      {"audit", job},
      {"definitions", "create", "Sales"},
      {"definitions", "list"},
      {"definitions", "show", "Sales"},
      {"definitions", "default"},
      {"definitions", "check"},
      {"definitions", "set", "Sales", "--deactivate"},
      {"definitions", "rename", "Sales", "Orders"},
      {"definitions", "delete", "Orders", "--json"},
      {"identity", "make", "file", "--filename", "/x"},
      {"identity", "make", "unified", "--id", "1"},
      {"identity", "make", "table", "--table", "x"},
      {"identity", "make", "datasource", "--dsn", "x"},
      {"identity", "parse",
       "<morvaxeldocument class=\"fileresource\" version=\"1\"><resource><file filename=\"/x\"/>"
       "</resource></morvaxeldocument>"},
      {"uri", "/x"},
      {"path", "file:///x"},
      {"types"},
      {"cache", "get", job},
      {"version"}};
  for (auto& words : commands)
    words.insert(words.end(), {"--set", definitions});
  return commands;
}

// The write end of a pipe that nobody reads.
class ClosedPipe {
public:
  ClosedPipe() {
    if (pipe(m_ends) != 0)
      throw std::runtime_error("no pipe");
    close(m_ends[0]);
  }
  ~ClosedPipe() { close(m_ends[1]); }
  ClosedPipe(const ClosedPipe&) = delete;
  ClosedPipe& operator=(const ClosedPipe&) = delete;

  ProcessResult run(Words words) const {
    words.insert(words.begin(),
                 {"bash", "-c", "exec \"$0\" \"$@\" >&" + std::to_string(m_ends[1]), toolPath});
    return runProcess(words);
  }

private:
  int m_ends[2] = {-1, -1};
};

TEST(QvreposFailures, TheCommandsTriedBelowAreAllAndSucceed) {
  const TempDir folder;
  const auto commands = printingCommands(folder);
  const auto leaves = leafCommands();
  std::set<std::string> tried;
  for (const auto& words : commands) {
    const auto run = runTool(words);
    EXPECT_EQ(run.status, 0) << words[0] << run.err;
    EXPECT_NE(run.out, "") << words[0];
    const std::string line = testing::PrintToString(words);
    for (const auto& leaf : leaves) {
      std::istringstream names(leaf);
      if (std::equal(std::istream_iterator<std::string>(names), {}, words.begin()))
        tried.insert(leaf);
    }
  }
  EXPECT_EQ(tried, std::set<std::string>(leaves.begin(), leaves.end()));
}

TEST(QvreposFailures, AClosedPipeFailsEveryCommandWithAMessage) {
  const TempDir folder;
  const ClosedPipe pipe;
  auto commands = printingCommands(folder);
  commands.insert(commands.end(),
                  {{"--help"}, {"--version"}, {"definitions", "create", "--help"}, {"generate", "man"}});
  for (const auto& words : commands) {
    const auto run = pipe.run(words);
    EXPECT_EQ(run.status, 1) << words[0];
    EXPECT_THAT(run.err, EndsWith("qvrepos: cannot write the result to standard output: Broken pipe\n"))
        << words[0];
  }
}

TEST(QvreposFailures, AFullDiskFailsEveryCommandWithAMessage) {
  const TempDir folder;
  auto commands = printingCommands(folder);
  commands.insert(commands.end(),
                  {{"--help"}, {"--version"}, {"definitions", "create", "--help"}, {"generate", "man"}});
  for (auto words : commands) {
    words.insert(words.begin(), toolPath);
    const auto run = runProcess(words, {}, "/dev/full");
    EXPECT_EQ(run.status, 1) << words[1];
    EXPECT_THAT(run.err,
                EndsWith("qvrepos: cannot write the result to standard output: No space left on device\n"))
        << words[1];
  }
}

// No file may grow beyond 1 kB: what writes more fails as on a full disk.
ProcessResult runWithLittleRoom(Words words, const std::vector<std::string>& environment = {}) {
  words.insert(words.begin(), {"bash", "-c", "ulimit -f 1; exec \"$0\" \"$@\"", toolPath});
  return runProcess(words, environment);
}

TEST(QvreposFailures, AFileThatCannotBeWrittenWholeIsNotLeftBehind) {
  const TempDir folder;
  folder.write("out.xml", "older");
  const auto big = folder.write("big", std::string(5000, 'x'));
  std::filesystem::create_directory(folder.path() / "definitions");
  std::filesystem::create_directory(folder.path() / "tmp");
  const auto before = filesIn(folder.path());
  const auto lineage =
      runWithLittleRoom({"lineage", sampleRepository + "/process_services", "-o", folder / "out.xml"});
  EXPECT_EQ(lineage.status, 1);
  EXPECT_THAT(lineage.err, HasSubstr("qvrepos: cannot write " + (folder / "out.xml") + ": "));
  EXPECT_EQ(folder.read("out.xml"), "older");

  const auto create =
      runWithLittleRoom({"definitions", "create", "Sales", "--connect", std::string(5000, 'x'), "--set",
                         "BASE/REPOS_USER_PATH=" + (folder / "definitions")});
  EXPECT_EQ(create.status, 1);
  EXPECT_THAT(create.err, HasSubstr("qvrepos: Sales: "));

  const auto get =
      runWithLittleRoom({"cache", "get", big, "-o", folder / "copy"}, {"TMPDIR=" + (folder / "tmp")});
  EXPECT_EQ(get.status, 1);
  EXPECT_THAT(get.err, HasSubstr("qvrepos: " + big + ": "));
  EXPECT_EQ(get.out, "");
  EXPECT_EQ(filesIn(folder.path()), before);
}

TEST(QvreposFailures, AFolderThatTakesNoFilesIsNamed) {
  const TempDir folder;
  const auto file = folder.write("file", "");
  const std::string definitions = "BASE/REPOS_USER_PATH=" + file + "/definitions";
  const std::vector<std::pair<Words, std::string>> cases{
      {{"lineage", job, "-o", file + "/out.xml"},
       "cannot write " + file + "/out.xml: there is no folder " + file},
      {{"cache", "get", job, "-o", file + "/copy"},
       "cannot write " + file + "/copy: there is no folder " + file},
      {{"definitions", "create", "Sales", "--set", definitions}, "Sales: "}};
  for (const auto& [words, message] : cases) {
    const auto run = runTool(words);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.out, "") << message;
    EXPECT_THAT(run.err, HasSubstr("qvrepos: " + message)) << message;
  }
  const auto scratch = runTool({"cache", "get", job}, {"TMPDIR=" + file});
  EXPECT_EQ(scratch.status, 1);
  EXPECT_EQ(scratch.err, "qvrepos: no folder for temporary files; set TMPDIR to one that exists\n");
  const auto full = runTool({"cache", "get", job}, {"TMPDIR=/proc"});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "qvrepos: cannot make a folder in /proc; set TMPDIR to one that takes it: "
                      "No such file or directory\n");
}

// Interrupted early and late, a change is made or is not; nothing else is left.
TEST(QvreposFailures, AnInterruptedChangeIsMadeOrIsNot) {
  const TempDir folder;
  const std::string definitions = "BASE/REPOS_USER_PATH=" + folder.path().string();
  runTool({"definitions", "create", "One", "--set", definitions});
  for (int hundredths = 1; hundredths <= 12; ++hundredths) {
    const bool isOne = std::filesystem::exists(folder / "One.rcf");
    runProcess({"timeout", "--signal=INT",
                "0." + std::string(hundredths < 10 ? "0" : "") + std::to_string(hundredths), toolPath,
                "definitions", "rename", isOne ? "One" : "Two", isOne ? "Two" : "One", "--set", definitions});
    const auto files = filesIn(folder.path());
    EXPECT_EQ(files.size(), 1U) << testing::PrintToString(files);
    EXPECT_THAT(files, IsSubsetOf({"One.rcf", "Two.rcf"}));
    EXPECT_EQ(runTool({"definitions", "check", "--set", definitions}).out, "1 definition loaded\n");
  }
}

TEST(QvreposFailures, SignalsThatAreToBeIgnoredAre) {
  const TempDir folder;
  HttpServer server;
  server.addUser("ann", "x");
  server.serveJob("/jobs/load", "2026-11-21T10:15:30.250", "batch_jobs/load", server.url("/content"));
  server.hold("/jobs/load", true);
  // Only the last signal ends the tool, which waits for an answer.
  const std::string command =
      "trap '' HUP INT; \"$0\" \"$@\" & tool=$!; until [[ -n $(ls $TMPDIR) ]]; do sleep 0.02; "
      "done; kill -HUP $tool; kill -INT $tool; sleep 0.2; kill -TERM $tool || echo gone; "
      "wait $tool; echo $?";
  const auto run = runProcess({"bash", "-c", command, toolPath, "cache", "get", server.url("/jobs/load"),
                               "--user", "ann", "--set", "AUTH/SERVER=" + server.ticketServer()},
                              {"QVREPOS_PASSWORD=x", "TMPDIR=" + folder.path().string()});
  EXPECT_EQ(run.out, std::to_string(128 + SIGTERM) + "\n") << run.err;
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

// A terminal on which the tool asks for ann's password: `answer` is typed once the prompt is there.
ProcessResult onTerminal(const TempDir& folder, const std::string& command, const std::string& answer) {
  const auto log = folder / "typescript";
  return runProcess(
      {"bash", "-c",
       "{ until grep -q 'Password of ann: ' \"$0\" 2>/dev/null; do sleep 0.02; done; printf \"$1\"; "
       "until grep -q 'ended' \"$0\"; do sleep 0.02; done; } | "
       "script --quiet --flush --return --command \"$2\" \"$0\"",
       log, answer, command});
}

TEST(QvreposFailures, ThePasswordIsAskedForAndNotShown) {
  const TempDir folder;
  HttpServer server;
  server.addUser("ann", "s3cret");
  server.serve("/content/load", "the job");
  server.serveJob("/jobs/load", "2026-11-21T10:15:30.250", "batch_jobs/load", server.url("/content/load"));
  server.requireTickets();
  const auto run =
      onTerminal(folder,
                 toolPath + " cache get " + server.url("/jobs/load") + " --user ann -o " +
                     (folder / "job.djf") + " --set AUTH/SERVER=" + server.ticketServer() + "; echo ended",
                 "s3cret\\n");
  EXPECT_EQ(folder.read("job.djf"), "the job") << run.out;
  EXPECT_THAT(run.out, AllOf(HasSubstr("Password of ann: "), Not(HasSubstr("s3cret"))));
}

TEST(QvreposFailures, WithoutAPasswordNothingIsFetched) {
  const TempDir folder;
  const auto run = onTerminal(
      folder, toolPath + " cache get /etc/hostname --user ann; echo \"status $?\"; echo ended", "\\004");
  EXPECT_THAT(run.out,
              AllOf(HasSubstr("qvrepos: no password was given for ann; type one, or set QVREPOS_PASSWORD"),
                    HasSubstr("status 1")));
}

class TerminalSignal : public testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(TerminalSignal, AtThePasswordLeavesTheTerminalAsItWas) {
  const TempDir folder;
  const auto [key, signal] = GetParam();
  const auto run =
      onTerminal(folder,
                 // What runs in the background of a script has both signals ignored, and its children have.
                 "ulimit -c 0; trap : INT QUIT; stty -a; TMPDIR=" + folder.path().string() +
                     " env --default-signal=INT,QUIT " + toolPath +
                     " cache get /etc/hostname --user ann; echo \"status $?\"; stty -a; echo ended",
                 key);
  EXPECT_THAT(run.out, HasSubstr("status " + std::to_string(128 + signal)));
  EXPECT_EQ(filesIn(folder.path()), Words{"typescript"});
  const auto before = run.out.find("speed "), after = run.out.rfind("speed ");
  ASSERT_NE(before, after) << run.out;
  const auto settings = [&](std::size_t from) {
    return run.out.substr(from, run.out.find("echoctl", from) - from);
  };
  EXPECT_EQ(settings(after), settings(before));
  EXPECT_THAT(settings(after), HasSubstr(" echo "));
}

INSTANTIATE_TEST_SUITE_P(Keys, TerminalSignal,
                         testing::Values(std::pair{"\\003", SIGINT}, std::pair{"\\034", SIGQUIT}));

} // namespace
