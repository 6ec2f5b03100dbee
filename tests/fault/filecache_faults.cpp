// What the cache does when the network, the ticket server or the disk fails: an older copy stays as it was, or there is
// a failure that says so.
#include "qvfilecacheimpl.h"
#include "qvfilecacheimpl_http.h"
#include "qvxbase/qvbconfig.h"
#include "support/allocations.h"
#include "support/descriptors.h"
#include "support/faults.h"
#include "support/faultserver.h"
#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

namespace fs = std::filesystem;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Descriptors of files: those of sockets are the servers' too, and come and go as they please.
std::set<int> openFiles() {
  auto all = openDescriptors();
  std::erase_if(all, [](int fd) {
    std::error_code gone;
    return !fs::read_symlink("/proc/self/fd/" + std::to_string(fd), gone).string().starts_with("/");
  });
  return all;
}

struct Got {
  int result;
  std::string error;

  bool operator==(const Got&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Got& got) {
  return out << '{' << got.result << ", \"" << got.error << "\"}";
}

// A job whose content alice has a copy of, and whose service then goes wrong. Every copy is taken for old.
class FileCacheFaults : public testing::Test {
protected:
  FileCacheFaults() {
    qvbSetConfigOption("AUTH/SERVER", text(server.ticketServer()));
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "-1");
    qvbSetConfigOption("HTTP/CONNECT_TIMEOUT", "1");
    qvbSetConfigOption("HTTP/LOW_SPEED_TIME", "1");
    qvbSetConfigOption("HTTP/MAX_BODY", "100000");
    server.addUser("alice", "a-secret");
    server.serve("/content", "first");
    linkTo(server.url("/content"));
    remake();
  }
  ~FileCacheFaults() override {
    cache.reset();
    EXPECT_TRUE(fs::is_empty(temporary.path()));
    qvbClearConfigOptions();
  }

  // A new cache, whose folder is the one in `temporary`.
  void remake() {
    cache.reset();
    const char* const found = std::getenv("TMPDIR");
    const std::string before = found ? found : "";
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    cache.reset(new FileAccessCacheImpl);
    before.empty() ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", before.c_str(), 1);
  }

  void linkTo(const std::string& content) {
    server.serveJob("/job", "2026-01-02T03:04:05", "jobs/load", content);
  }
  Got get(const std::string& name) {
    const QvbDate start = QvbDate::currentDate(false);
    while (QvbDate::currentDate(false).compare(start) <= 0)
      ;
    QvbString path, error;
    const int result = cache->getCacheFilename(alice.get(), text(name), &path, &error);
    local = str(path);
    return {result, str(error)};
  }
  Got get() { return get(server.url("/job")); }

  // Everything in the folder of copies, temporary files included.
  std::vector<std::string> files() const {
    std::vector<std::string> all;
    for (const auto& folder : fs::directory_iterator(temporary.path())) {
      for (const auto& file : fs::directory_iterator(folder))
        all.push_back(file.path().string());
    }
    return all;
  }
  std::string folder() const { return fs::directory_iterator(temporary.path())->path().string(); }

  // There is nothing but the copy, and it holds these bytes.
  void expectCopy(const std::string& content) const {
    EXPECT_EQ(files(), std::vector{local});
    EXPECT_EQ(readFile(local), content);
  }
  // A content at this place is fetched in vain, first over an older copy and then without one.
  void expectSafeWithContentAt(const std::string& link) {
    ASSERT_EQ(get(), (Got{0, ""}));
    linkTo(link);
    const auto before = openFiles();
    EXPECT_EQ(get().result, 1);
    expectCopy("first");
    EXPECT_EQ(openFiles(), before);
    EXPECT_THAT(log->lines("QV.FileAccessCache"),
                Contains(LogLine{"QV.FileAccessCache", 5, "src/qvfilecacheimpl",
                                 "There was an error setting the cache file \"" + server.url("/job") +
                                     "\" contents from provider: Unavlid response from HTTP get"}));
    cache->flush(false);
    EXPECT_EQ(get().result, 1);
    EXPECT_THAT(files(), IsEmpty());
    // and all is well again when the service is
    linkTo(server.url("/content"));
    EXPECT_EQ(get(), (Got{0, ""}));
    expectCopy("first");
  }
  // A description at this place cannot be had: there is no copy, and the next attempt asks again.
  void expectSafeWithJobAt(const std::string& name) {
    EXPECT_EQ(get(name).result, 1);
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_NE(get(name).result, 0);
    EXPECT_THAT(files(), IsEmpty());
  }
  // A content that was refused is named with its ticket, which is dead by then; nothing else is that could be used.
  void expectNoLiveTicketShown() const {
    for (const LogLine& record : log->lines()) {
      if (record.level == 1 ||
          record.text.find("requesting " + server.url("/content?ticket=")) != std::string::npos)
        continue;
      EXPECT_THAT(record.text,
                  AllOf(Not(HasSubstr("ST-")), Not(HasSubstr("TGT-")), Not(HasSubstr("secret"))));
    }
  }

  TempDir temporary;
  HttpServer server;
  FaultServer broken;
  const ReleasedSubject alice{qvbSubjectCreate("alice", "a-secret")};
  std::string local;
  std::optional<LogCapture> log{std::in_place};
  Released<FileAccessCacheImpl> cache;
};

// Files and a job, for whose operations memory runs short in this thread.
class FileCacheMemory : public FileCacheFaults {
protected:
  FileCacheMemory() { log.reset(); }

  static void waitABit() {
    const QvbDate start = QvbDate::currentDate(false);
    while (QvbDate::currentDate(false).compare(start) <= 0)
      ;
  }
  // Makes copies before memory runs short.
  void fillWithMemory() {
    const long left = std::exchange(Allocations::left, -1);
    for (const QvbString& name : {plain, jobName})
      cache->getCacheFilename(alice.get(), name, &path, &error);
    Allocations::left = left;
  }
  // Whatever the attempt met, there is no torn copy, and the next one succeeds.
  void expectFetchedInTheEnd(const QvbString& name) {
    int result = 0;
    Allocations::failEach(
        [&] {
          const long left = std::exchange(Allocations::left, -1);
          cache->flush(false);
          path.setNull();
          Allocations::left = left;
          result = cache->getCacheFilename(alice.get(), name, &path, &error);
        },
        [&](long n) {
          for (const std::string& file : files())
            EXPECT_EQ(readFile(file), "first") << "allocation " << n;
          EXPECT_EQ(cache->getCacheFilename(alice.get(), name, &path, &error), 0) << "allocation " << n;
          EXPECT_EQ(readFile(str(path)), "first") << "allocation " << n;
          EXPECT_EQ(files(), std::vector{str(path)}) << "allocation " << n;
        });
    EXPECT_EQ(result, 0);
  }

  TempDir sources;
  const QvbString plain = text(sources.write("source", "first"));
  const QvbString uri = text("FILE://" + str(plain));
  const QvbString jobName = text(server.url("/job"));
  QvbString path;
  QvbString error;
};

struct NamedFault {
  const char* name;
  HttpFault fault;
};
void PrintTo(const NamedFault& named, std::ostream* out) { *out << named.name; }

class BrokenService : public FileCacheFaults, public testing::WithParamInterface<NamedFault> {};

} // namespace

// --- The network

TEST_P(BrokenService, LeavesTheOldCopy) { expectSafeWithContentAt(broken.url(GetParam().fault)); }

TEST_P(BrokenService, MakesNoCopyOfAJob) { expectSafeWithJobAt(broken.url(GetParam().fault)); }

INSTANTIATE_TEST_SUITE_P(Faults, BrokenService,
                         testing::Values(NamedFault{"Silent", HttpFault::Silent},
                                         NamedFault{"SilentBody", HttpFault::SilentBody},
                                         NamedFault{"ResetInBody", HttpFault::ResetInBody},
                                         NamedFault{"ShortBody", HttpFault::ShortBody},
                                         NamedFault{"ShortChunk", HttpFault::ShortChunk},
                                         NamedFault{"EndlessBody", HttpFault::EndlessBody},
                                         NamedFault{"EndlessHeaders", HttpFault::EndlessHeaders},
                                         NamedFault{"HugeLength", HttpFault::HugeLength},
                                         NamedFault{"CloseAtOnce", HttpFault::CloseAtOnce},
                                         NamedFault{"NotHttp", HttpFault::NotHttp}),
                         [](const auto& named) { return named.param.name; });

TEST_F(FileCacheFaults, ARefusedConnectionLeavesTheOldCopy) {
  const ClosedPort closed;
  expectSafeWithContentAt(closed.url("/content"));
}

TEST_F(FileCacheFaults, AConnectionThatNeverStandsLeavesTheOldCopy) {
  const DeafPort deaf;
  expectSafeWithContentAt(deaf.url("/content"));
}

TEST_F(FileCacheFaults, ARefusedConnectionMakesNoCopyOfAJob) {
  const ClosedPort closed;
  expectSafeWithJobAt(closed.url("/job"));
}

// One byte a second is slow, but nobody who waits for it sees a part of it.
TEST_F(FileCacheFaults, ASlowContentIsThereWholeOrNotAtAll) {
  ASSERT_EQ(get(), (Got{0, ""}));
  linkTo(broken.url(HttpFault::Slow));
  get();
  const std::string copy = readFile(local);
  EXPECT_TRUE(copy == "first" || copy == "abc") << copy;
  EXPECT_EQ(files(), std::vector{local});
}

TEST_F(FileCacheFaults, ABodyOverTheLimitLeavesTheOldCopy) {
  server.serve("/large", std::string(100001, 'x'));
  expectSafeWithContentAt(server.url("/large"));
}

TEST_F(FileCacheFaults, ACertificateThatNobodyVouchesForLeavesTheOldCopy) {
  HttpServer secure(HttpServer::Transport::Tls);
  secure.serve("/content", "forged");
  expectSafeWithContentAt(secure.url("/content"));
  EXPECT_THAT(secure.requests(), IsEmpty());
}

TEST_F(FileCacheFaults, ACertificateForAnotherHostLeavesTheOldCopy) {
  HttpServer secure(HttpServer::Transport::TlsForAnotherHost);
  secure.serve("/content", "forged");
  qvbSetConfigOption("HTTP/CA_FILE", text(secure.certificateFile()));
  expectSafeWithContentAt(secure.url("/content"));
  EXPECT_THAT(secure.requests(), IsEmpty());
}

TEST_F(FileCacheFaults, ACertificateThatIsTrustedIsTaken) {
  HttpServer secure(HttpServer::Transport::Tls);
  secure.serve("/content", "over TLS");
  qvbSetConfigOption("HTTP/CA_FILE", text(secure.certificateFile()));
  linkTo(secure.url("/content"));
  EXPECT_EQ(get(), (Got{0, ""}));
  expectCopy("over TLS");
}

TEST_F(FileCacheFaults, ARefreshThatTheServiceRefusesLeavesTheOldCopy) {
  server.requireTickets();
  ASSERT_EQ(get(), (Got{0, ""}));
  for (const int status : {401, 403, 404, 500, 503}) {
    const std::vector<int> refusals(status == 401 ? 4 : 1, status);
    server.answer("/job", refusals);
    EXPECT_EQ(get().error, "Unable to obtain modified date for file") << status;
    expectCopy("first");
    server.answer("/content", refusals);
    EXPECT_NE(get().result, 0) << status;
    expectCopy("first");
  }
  server.serve("/content", "second");
  EXPECT_EQ(get(), (Got{0, ""}));
  expectCopy("second");
  expectNoLiveTicketShown();
}

// --- Tickets

TEST_F(FileCacheFaults, WithoutATicketServerTheOldCopyStays) {
  ASSERT_EQ(get(), (Got{0, ""}));
  server.answerTicketRequests({500, 500});
  EXPECT_EQ(get(), (Got{1, "The ticket server refused a service ticket: 500 Internal Server Error"}));
  expectCopy("first");

  const ClosedPort closed;
  qvbSetConfigOption("AUTH/SERVER", text(closed.url("/cas")));
  remake();
  const Got got = get();
  EXPECT_EQ(got.result, 1);
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(FileCacheFaults, ALostLoginIsMadeAgain) {
  server.requireTickets();
  ASSERT_EQ(get(), (Got{0, ""}));
  server.expireLogins();
  server.serve("/content", "second");
  EXPECT_EQ(get(), (Got{0, ""}));
  expectCopy("second");
  EXPECT_EQ(server.logins(), 2);
}

TEST_F(FileCacheFaults, AnExpiredTicketIsRenewedThreeTimes) {
  server.requireTickets();
  ASSERT_EQ(get(), (Got{0, ""}));
  server.clearRequests();
  server.setTicketLife(std::chrono::milliseconds(0));
  EXPECT_EQ(get(), (Got{4, "Unable to obtain modified date for file"}));
  EXPECT_EQ(server.requests("/job").size(), 4U);
  expectCopy("first");
  expectNoLiveTicketShown();
}

TEST_F(FileCacheFaults, ATicketThatIsNoneIsNeverSent) {
  ASSERT_EQ(get(), (Got{0, ""}));
  for (const char* ticket : {"ST-1\nX-Forged: yes", "ST-1\r\n\r\nGET /other HTTP/1.1", "ST-1&admin=true",
                             "ST-1#fragment", "ST-1 blank", "", "../../etc"}) {
    server.clearRequests();
    server.issueTickets({ticket});
    EXPECT_EQ(get(), (Got{1, "The ticket server gave a service ticket that is not one"})) << ticket;
    EXPECT_THAT(server.requests("/job"), IsEmpty());
    server.issueTickets({"ST-for-the-job", ticket});
    EXPECT_EQ(get(), (Got{1, ""})) << ticket;
    EXPECT_THAT(server.requests("/content"), IsEmpty());
    expectCopy("first");
  }
  expectNoLiveTicketShown();
}

// --- The disk

TEST_F(FileCacheFaults, AFullDiskLeavesTheOldCopyOfAFile) {
  const TempDir sources;
  const std::string name = sources.write("source", "first");
  ASSERT_EQ(get(name), (Got{0, ""}));
  sources.write("source", "second");
  for (const QvbFaultPoint point : {QvbFaultPoint::FileOpen, QvbFaultPoint::FileWrite,
                                    QvbFaultPoint::FileClose, QvbFaultPoint::FileRename}) {
    {
      const Faults full([&](QvbFaultPoint at, const std::string& subject) {
        return at == point && subject.starts_with(temporary.path().string()) ? ENOSPC : 0;
      });
      EXPECT_EQ(get(name), (Got{1, ""})) << static_cast<int>(point);
    }
    expectCopy("first");
  }
  EXPECT_EQ(get(name), (Got{0, ""}));
  expectCopy("second");
}

TEST_F(FileCacheFaults, AFullDiskLeavesTheOldCopyOfAJob) {
  ASSERT_EQ(get(), (Got{0, ""}));
  server.serve("/content", "second");
  {
    const Faults full(QvbFaultPoint::FileOpen, ENOSPC);
    EXPECT_EQ(get().result, 12);
  }
  expectCopy("first");
  for (const QvbFaultPoint point :
       {QvbFaultPoint::FileWrite, QvbFaultPoint::FileClose, QvbFaultPoint::FileRename}) {
    {
      const Faults full(point, ENOSPC);
      get();
    }
    expectCopy("first");
  }
  EXPECT_EQ(get(), (Got{0, ""}));
  expectCopy("second");
}

TEST_F(FileCacheFaults, AFolderThatIsReadOnlyLeavesTheOldCopy) {
  const TempDir sources;
  const std::string name = sources.write("source", "first");
  ASSERT_EQ(get(name), (Got{0, ""}));
  sources.write("source", "second");
  {
    // permissions do not keep every user out, so the refusal is the platform's
    const Faults readOnly([&](QvbFaultPoint at, const std::string& subject) {
      return at == QvbFaultPoint::FileOpen && subject.starts_with(folder()) ? EROFS : 0;
    });
    EXPECT_EQ(get(name), (Got{1, ""}));
  }
  expectCopy("first");
  EXPECT_EQ(get(name), (Got{0, ""}));
  expectCopy("second");
}

TEST_F(FileCacheFaults, ASourceThatCannotBeReadLeavesTheOldCopy) {
  const TempDir sources;
  const std::string name = sources.write("source", "first");
  ASSERT_EQ(get(name), (Got{0, ""}));
  sources.write("source", std::string(10000, 'x'));
  int reads = 0;
  {
    const Faults failing([&](QvbFaultPoint at, const std::string&) {
      return at == QvbFaultPoint::FileRead && ++reads == 2 ? EIO : 0;
    });
    EXPECT_EQ(get(name), (Got{1, ""}));
  }
  expectCopy("first");
  fs::remove(name);
  EXPECT_EQ(get(name), (Got{3, ""}));
  expectCopy("first");
}

TEST_F(FileCacheFaults, FailedCopiesLeaveNoDescriptorOpen) {
  const TempDir sources;
  const std::string name = sources.write("source", "first");
  ASSERT_EQ(get(name), (Got{0, ""}));
  const auto before = openFiles();
  for (const QvbFaultPoint point :
       {QvbFaultPoint::FileOpen, QvbFaultPoint::FileRead, QvbFaultPoint::FileWrite, QvbFaultPoint::FileClose,
        QvbFaultPoint::FileRename, QvbFaultPoint::FileStat, QvbFaultPoint::DirOpen}) {
    {
      const Faults faults(point, EIO);
      EXPECT_NE(get(name).result, 0) << static_cast<int>(point);
    }
    expectCopy("first");
    EXPECT_EQ(openFiles(), before) << static_cast<int>(point);
  }
}

// --- Memory

TEST_F(FileCacheMemory, CostsTheCallThatMetItsEndWhenAFileIsFetched) { expectFetchedInTheEnd(plain); }

TEST_F(FileCacheMemory, CostsTheCallThatMetItsEndWhenAUriIsFetched) { expectFetchedInTheEnd(uri); }

TEST_F(FileCacheMemory, CostsTheCallThatMetItsEndWhenAJobIsFetched) { expectFetchedInTheEnd(jobName); }

TEST_F(FileCacheMemory, CostsTheCallThatMetItsEndAtEveryLogLevel) {
  struct QuietSink final : QvLogSink {
    void record(const QvLogRecord&) override {}
  };
  qvlogSetSink(std::make_shared<QuietSink>());
  expectFetchedInTheEnd(plain);
  expectFetchedInTheEnd(jobName);
  qvlogSetSink(nullptr);
}

TEST_F(FileCacheMemory, CostsTheCallThatMetItsEndWhenACopyIsRefreshed) {
  for (const QvbString& name : {plain, uri, jobName}) {
    ASSERT_EQ(cache->getCacheFilename(alice.get(), name, &path, &error), 0);
    const QvbString first = path;
    int result = 0;
    Allocations::failEach([&] { result = cache->getCacheFilename(alice.get(), name, &path, &error); },
                          [&](long n) {
                            EXPECT_EQ(str(path), str(first)) << name << ", allocation " << n;
                            EXPECT_TRUE(readFile(str(first)) == "first") << name << ", allocation " << n;
                            waitABit();
                          });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(cache->getCacheFilename(alice.get(), name, &path, &error), 0);
    cache->flush(false);
  }
}

TEST_F(FileCacheMemory, CostsTheCallThatMetItsEndWhenADateIsAskedFor) {
  for (const QvbString& name : {plain, uri, jobName}) {
    ASSERT_EQ(cache->getCacheFilename(alice.get(), name, &path, &error), 0);
    bool modified = false;
    QvbDate date;
    Allocations::failEach(
        [&] {
          cache->isModified(alice.get(), name, &modified, &error);
          cache->getModifiedDate(alice.get(), name, &date, &error);
        },
        [&](long n) {
          EXPECT_EQ(cache->isModified(alice.get(), name, &modified, &error), 0) << n;
          EXPECT_FALSE(modified) << name << ", allocation " << n;
          EXPECT_EQ(cache->getModifiedDate(alice.get(), name, &date, &error), 0) << n;
        });
  }
}

TEST_F(FileCacheMemory, KeepsAFlushFromNothing) {
  Allocations::failEach(
      [&] {
        fillWithMemory();
        cache->flush(false);
      },
      [&](long n) { EXPECT_THAT(files(), IsEmpty()) << n; });
  EXPECT_EQ(cache->getCacheFilename(alice.get(), jobName, &path, &error), 0);
}

TEST_F(FileCacheMemory, KeepsTheEndFromNothing) {
  Allocations::failEach(
      [&] {
        fillWithMemory();
        cache.reset();
        Allocations::left = -1;
        const long failed = Allocations::failed;
        remake();
        Allocations::failed = failed;
      },
      [&](long n) { EXPECT_EQ(std::distance(fs::directory_iterator(temporary.path()), {}), 1) << n; });
}

TEST_F(FileCacheMemory, FailsTheSourcesOwnOperations) {
  RemoteHttpFileProvider service;
  const QvbString copy = text(sources / "copy");
  bool exists = true;
  int dated = 0, fetched = 0;
  QvbDate date;
  Allocations::failEach(
      [&] {
        service.flush(false);
        exists = service.exists(alice.get(), jobName, &error);
        dated = service.getModifiedDate(alice.get(), jobName, &date, &error, true);
        fetched = service.updateLocalFileContent(alice.get(), jobName, copy, &error);
      },
      [&](long n) {
        EXPECT_TRUE(service.exists(alice.get(), jobName, &error)) << n;
        EXPECT_EQ(service.getModifiedDate(alice.get(), jobName, &date, &error, false), 0) << n;
        EXPECT_EQ(date.asString(true), "2026-01-02") << n;
        EXPECT_EQ(service.updateLocalFileContent(alice.get(), jobName, copy, &error), 0) << n;
        EXPECT_EQ(sources.read("copy"), "first") << n;
      });
  EXPECT_TRUE(exists);
  EXPECT_EQ(dated, 0);
  EXPECT_EQ(fetched, 0);
}

// --- Options

TEST_F(FileCacheFaults, OptionsThatAreNoNumbersLeaveTheStandardOnes) {
  qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "often");
  qvbSetConfigOption("HTTP/CONNECT_TIMEOUT", "quick");
  qvbSetConfigOption("HTTP/LOW_SPEED_TIME", "soon");
  qvbSetConfigOption("HTTP/MAX_BODY", "enough");
  remake();
  EXPECT_EQ(get(), (Got{0, ""}));
  expectCopy("first");
  QvbDate from, expected;
  from.assign(2026, 1, 1, 0, 0, 0, 0);
  expected.assign(2026, 1, 1, 0, 0, 0, 250);
  EXPECT_EQ(cache->getCacheExpireAsOfDate(from).compare(expected), 0);
}
