#include "support/httpserver.h"
#include "support/tool.h"

#include <gmock/gmock.h>

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

TEST(QvreposCache, CopiesAFileWhereItIsTold) {
  const TempDir folder;
  const auto source = folder.write("source.txt", "content\n");
  const auto run = runTool({"cache", "get", source, "-o", folder / "copy.txt"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, (folder / "copy.txt") + "\n");
  EXPECT_EQ(folder.read("copy.txt"), "content\n");
}

TEST(QvreposCache, CopiesSeveralFilesIntoAFolder) {
  const TempDir folder;
  const auto one = folder.write("from/one.txt", "1"), two = folder.write("from/t w o.txt", "2");
  std::filesystem::create_directory(folder.path() / "to");
  const auto run = runTool({"cache", "get", one, two, "-o", folder / "to"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(folder.read("to/one.txt"), "1");
  EXPECT_EQ(folder.read("to/t w o.txt"), "2");
}

TEST(QvreposCache, RefusesTargetsThatWouldOverwriteEachOther) {
  const TempDir folder;
  const auto one = folder.write("a/same.txt", "1"), two = folder.write("b/same.txt", "2");
  const auto run = runTool({"cache", "get", one, two, "-o", folder.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("two of the files would be written to " + (folder / "same.txt") +
                                 "; fetch them one by one, each to an --output of its own\n"));
  EXPECT_EQ(folder.read("same.txt"), "");
  const auto file = runTool({"cache", "get", one, two, "-o", folder / "no-folder"});
  EXPECT_EQ(file.status, 1);
  EXPECT_THAT(file.err, HasSubstr("several files need a folder that exists as --output: "));
}

TEST(QvreposCache, ShowsProgressFromTheSecondFileOn) {
  const TempDir folder;
  const auto one = folder.write("one.txt", "1"), two = folder.write("two.txt", "2");
  const auto onTerminal = [&](const std::string& operands) {
    return runProcess({"script", "--quiet", "--return", "--command", toolPath + " cache get " + operands,
                       "/dev/null"})
        .out;
  };
  EXPECT_THAT(onTerminal(one + " " + two), HasSubstr("2 of 2 files"));
  EXPECT_THAT(onTerminal(one), Not(HasSubstr("1 of 1 files")));
  EXPECT_THAT(onTerminal("--quiet " + one + " " + two), Not(HasSubstr("2 of 2 files")));
}

TEST(QvreposCache, CopiesEndWithTheCommandUnlessTheyAreKept) {
  const TempDir folder;
  const auto source = folder.write("source.txt", "content");
  std::filesystem::create_directory(folder.path() / "tmp");
  const std::vector<std::string> environment{"TMPDIR=" + (folder / "tmp")};

  const auto gone = runTool({"cache", "get", source}, environment);
  EXPECT_EQ(gone.status, 0) << gone.err;
  EXPECT_THAT(gone.out, HasSubstr(folder / "tmp/"));
  EXPECT_EQ(gone.err,
            "qvrepos: the copies are gone when this command ends: --keep leaves them, --output puts "
            "them elsewhere\n");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "tmp"));

  auto kept = runTool({"cache", "get", "--keep", source}, environment);
  EXPECT_EQ(kept.status, 0) << kept.err;
  kept.out.pop_back();
  std::ifstream copy(kept.out);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copy), {}), "content");
}

TEST(QvreposCache, NamesWhatItCannotGetAndFetchesTheOthers) {
  const TempDir folder;
  const auto source = folder.write("source.txt", "content");
  std::filesystem::create_directory(folder.path() / "to");
  const auto run =
      runTool({"cache", "get", folder / "gone.txt", source, "ftp://host/file", "-o", folder / "to"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, (folder / "to/source.txt") + "\n");
  EXPECT_THAT(run.err, AllOf(HasSubstr("qvrepos: " + (folder / "gone.txt") + ": no such file"),
                             HasSubstr("qvrepos: ftp://host/file: ")));
}

TEST(QvreposCache, PrintsTheFileWhereTheOutputIsADash) {
  const TempDir folder;
  const auto source = folder.write("source.txt", "content");
  const auto run = runProcess(
      {"bash", "-c", "cd $1 && $0 cache get $2 -o - && ls", toolPath, folder.path().string(), source});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "contentsource.txt\n");
  EXPECT_EQ(run.err, "");
  EXPECT_THAT(runTool({"cache", "get", source, source, "-o", "-"}).err,
              HasSubstr("several files need a folder that exists as --output: -"));
  const auto json = runTool({"cache", "get", source, "-o", "-", "--json"});
  EXPECT_EQ(json.status, 2);
  EXPECT_THAT(json.err, HasSubstr("--output - prints the file itself: it takes no --json"));
}

// One byte more than is copied at once, without a byte on the disk.
TEST(QvreposCache, NamesACopyThatIsTooLargeToBeRead) {
  const TempDir folder;
  const auto source = folder.write("source.txt", "");
  std::filesystem::resize_file(source, (std::uintmax_t{1} << 30) + 1);
  const auto run = runTool({"cache", "get", source, "-o", folder / "copy.txt"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("qvrepos: cannot read the copy "));
  EXPECT_FALSE(std::filesystem::exists(folder / "copy.txt"));
}

TEST(QvreposCache, SaysWhichOptionIsMissingForRemoteFiles) {
  const auto run = runTool({"cache", "get", "http://127.0.0.1:9/job"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("the option AUTH/SERVER is not set"));
}

TEST(QvreposCache, NeedsAPasswordFromTheEnvironmentWithoutATerminal) {
  const auto run =
      runProcess({"setsid", "--wait", toolPath, "cache", "get", "--user", "ann", "/etc/hostname"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("no terminal to ask for the password of ann; set QVREPOS_PASSWORD"));
}

// A web service whose jobs need a ticket for each request.
class TicketedService {
public:
  TicketedService() {
    m_server.addUser("ann", "s e&cret");
    m_server.serve("/content/load", "the job");
    m_server.serveJob("/jobs/load", "2026-11-21T10:15:30.250", "batch_jobs/load",
                      m_server.url("/content/load"));
    m_server.requireTickets();
  }
  HttpServer& server() { return m_server; }
  ProcessResult get(const std::string& password, const std::vector<std::string>& more) const {
    std::vector<std::string> words{"cache",
                                   "get",
                                   m_server.url("/jobs/load"),
                                   "--user",
                                   "ann",
                                   "--set",
                                   "AUTH/SERVER=" + m_server.ticketServer()};
    words.insert(words.end(), more.begin(), more.end());
    return runTool(words, {"QVREPOS_PASSWORD=" + password});
  }

private:
  HttpServer m_server;
};

TEST(QvreposCache, FetchesAJobWithATicketForEachRequest) {
  const TempDir folder;
  TicketedService service;
  const auto run = service.get("s e&cret", {"-o", folder / "job.djf"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(folder.read("job.djf"), "the job");
  EXPECT_EQ(service.server().logins(), 1);
  EXPECT_EQ(service.server().ticketsIssued(), 2);
}

TEST(QvreposCache, WrongPasswordFailsWithoutShowingIt) {
  const TempDir folder;
  const TicketedService service;
  const auto run = service.get("wrong-password", {"-o", folder / "job.djf"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("/jobs/load: "), Not(HasSubstr("wrong-password"))));
  EXPECT_FALSE(std::filesystem::exists(folder / "job.djf"));
}

TEST(QvreposCache, InterruptLeavesNothingBehind) {
  const TempDir folder;
  std::filesystem::create_directory(folder.path() / "tmp");
  HttpServer server;
  server.addUser("ann", "x");
  server.serveJob("/jobs/load", "2026-11-21T10:15:30.250", "batch_jobs/load", server.url("/content"));
  server.hold("/jobs/load", true);
  // `timeout` interrupts the tool while it waits for the answer, and ends with the status of the interrupt.
  const auto run =
      runProcess({"timeout", "--preserve-status", "--signal=INT", "2", toolPath, "cache", "get",
                  server.url("/jobs/load"), "--user", "ann", "--set", "AUTH/SERVER=" + server.ticketServer()},
                 {"QVREPOS_PASSWORD=x", "TMPDIR=" + (folder / "tmp")});
  EXPECT_EQ(run.status, 128 + SIGINT) << run.err;
  EXPECT_EQ(server.requests("/jobs/load").size(), 1U);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "tmp"));
}

} // namespace
