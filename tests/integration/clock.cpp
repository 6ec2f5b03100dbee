// What holds when the system's clock is set back, and when it changes to summer time and back. The program has a clock of
// its own, which comes before the C library's, and zones whose rules stand in TZ, so that it needs no list of zones.
#include "qvreposres/qvfilecache.h"
#include "qvsstr/qvsstr.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbdate.h"
#include "qvxbase/qvbreleased.h"
#include "qvxlog/qvxlog.h"
#include "support/tempdir.h"
#include "support/textio.h"
#include "support/zone.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr std::int64_t running = std::numeric_limits<std::int64_t>::min();
// The second since 1970 at which the clock stands.
std::atomic<std::int64_t> theSecond{running};

} // namespace

extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* out) noexcept {
  const std::int64_t second = theSecond;
  if (clock != CLOCK_REALTIME || second == running)
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, out));
  *out = {second, 0};
  return 0;
}

namespace {

QvbDate dateOf(const std::string& text) {
  int e[7] = {};
  EXPECT_TRUE(qvs_string_to_date_milli(text.c_str(), &e[0], &e[1], &e[2], &e[3], &e[4], &e[5], &e[6], 2))
      << text;
  QvbDate date;
  date.assign(e[0], e[1], e[2], e[3], e[4], e[5], e[6]);
  return date;
}

std::int64_t secondOf(const std::string& utc) { return static_cast<std::int64_t>(dateOf(utc).asDouble()); }

// The clock stands where a test puts it, and runs again afterwards.
class Clock : public testing::Test {
protected:
  ~Clock() override { theSecond = running; }
  static void set(const std::string& utc) { theSecond = secondOf(utc); }
  static void pass(std::int64_t seconds) { theSecond += seconds; }
};

struct Change {
  const char* zone;
  const char* utc; // the first second after the change
  const char* before;
  const char* after;
};

constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr Change changes[] = {
    {berlin, "2026-03-29T01:00:00", "2026-03-29T01:59:59.000", "2026-03-29T03:00:00.000"},
    {berlin, "2026-10-25T01:00:00", "2026-10-25T02:59:59.000", "2026-10-25T02:00:00.000"},
    {"NST3:30NDT,M3.2.0,M11.1.0", "2026-03-08T05:30:00", "2026-03-08T01:59:59.000",
     "2026-03-08T03:00:00.000"},
    {"NST3:30NDT,M3.2.0,M11.1.0", "2026-11-01T04:30:00", "2026-11-01T01:59:59.000",
     "2026-11-01T01:00:00.000"},
    // in the south, where summer spans the new year
    {"NZST-12NZDT,M9.5.0,M4.1.0/3", "2026-09-26T14:00:00", "2026-09-27T01:59:59.000",
     "2026-09-27T03:00:00.000"},
    {"NZST-12NZDT,M9.5.0,M4.1.0/3", "2026-04-04T14:00:00", "2026-04-05T02:59:59.000",
     "2026-04-05T02:00:00.000"},
    // by half an hour
    {"LHST-10:30LHDT-11,M10.1.0,M4.1.0", "2026-10-03T15:30:00", "2026-10-04T01:59:59.000",
     "2026-10-04T02:30:00.000"},
    {"LHST-10:30LHDT-11,M10.1.0,M4.1.0", "2026-04-04T15:00:00", "2026-04-05T01:59:59.000",
     "2026-04-05T01:30:00.000"},
    // without summer time
    {"NPT-5:45", "2026-03-29T01:00:00", "2026-03-29T06:44:59.000", "2026-03-29T06:45:00.000"},
};

TEST_F(Clock, DatesFollowItThroughEveryChange) {
  for (const Change& change : changes) {
    const Zone zone(change.zone);
    set(change.utc);
    EXPECT_EQ(str(QvbDate::currentDate().asString()), change.after) << change.zone;
    EXPECT_EQ(str(QvbDate::currentDate(true).asString()), change.utc + std::string(".000"));
    pass(-1);
    EXPECT_EQ(str(QvbDate::currentDate().asString()), change.before) << change.zone;
  }
}

TEST_F(Clock, DatesAreReadAsTheyWereWrittenAroundEveryChange) {
  for (const Change& change : changes) {
    const Zone zone(change.zone);
    for (std::int64_t second = secondOf(change.utc) - 7200; second <= secondOf(change.utc) + 7200;
         second += 900) {
      theSecond = second;
      const QvbDate local = QvbDate::currentDate();
      EXPECT_EQ(dateOf(str(local.asString())).compare(local), 0) << str(local.asString());
      const std::string utc = str(QvbDate::currentDate(true).asString()) + "Z";
      EXPECT_EQ(dateOf(utc).compare(local), 0) << change.zone << ' ' << utc;
      EXPECT_EQ(QvbDate::fromEpoch(second).compare(local), 0) << change.zone << ' ' << utc;
    }
  }
}

TEST_F(Clock, LogTimesFollowItBackAndForth) {
  QvLogger* const log = qvlogGetLogger("QV.Test");
  const auto write = [&](const char* text) {
    log->logEvent(QvLoggingLevel::Error, "src/tester", 1, "%s", text);
  };
  EXPECT_EXIT(
      {
        const Zone zone(berlin);
        set("2026-10-25T00:59:59");
        write("in summer");
        pass(1);
        write("in winter");
        pass(-86'400);
        write("set back a day");
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      testing::MatchesRegex(
          "2026-10-25T02:59:59.000 error .* in summer\n2026-10-25T02:00:00.000 error .* in winter\n"
          "2026-10-24T03:00:00.000 error .* set back a day\n"));
}

// The process-wide cache with an interval of ten minutes, and a source on disk.
class CachedFile : public Clock {
protected:
  CachedFile() {
    set("2026-11-21T10:15:30");
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "600000");
  }
  ~CachedFile() override {
    qvFileCacheShutdown();
    qvbClearConfigOptions();
  }
  // What the copy says.
  std::string get() {
    QvbString local, reason;
    EXPECT_EQ(getFileCache()->getCacheFilename(m_user.get(), text(source), &local, &reason), 0)
        << str(reason);
    return m_folder.read(str(local));
  }
  void write(const std::string& content) { m_folder.write("source.txt", content); }
  bool isModified() {
    bool modified = false;
    QvbString reason;
    EXPECT_EQ(getFileCache()->isModified(m_user.get(), text(source), &modified, &reason), 0) << str(reason);
    return modified;
  }

private:
  const TempDir m_folder;
  const ReleasedSubject m_user{qvbSubjectCreate("alice", QvbString())};

protected:
  const std::string source = m_folder.write("source.txt", "first");
};

// A copy's age is a difference of two readings of the clock. One from the future has none yet.
TEST_F(CachedFile, IsKeptForTheHourThatTheClockIsSetBackAndTheInterval) {
  EXPECT_EQ(get(), "first");
  write("second");
  pass(-3600);
  EXPECT_EQ(get(), "first");
  pass(3600 + 600);
  EXPECT_EQ(get(), "first");
  pass(1);
  EXPECT_EQ(get(), "second");
}

TEST_F(CachedFile, IsCopiedAtOnceWhenTheClockIsSetForwardBeyondTheInterval) {
  EXPECT_EQ(get(), "first");
  write("second");
  pass(3600);
  EXPECT_EQ(get(), "second");
  write("third");
  pass(-3600);
  EXPECT_EQ(get(), "second");
}

// The readings are local times: the hour that the clocks skip ages a copy, the one that comes twice keeps it.
TEST_F(CachedFile, AgesByAnHourWhenSummerTimeBegins) {
  const Zone zone(berlin);
  set("2026-03-29T00:59:59");
  EXPECT_EQ(get(), "first");
  write("second");
  pass(1);
  EXPECT_EQ(get(), "second");
}

TEST_F(CachedFile, IsKeptForAnHourMoreWhenSummerTimeEnds) {
  const Zone zone(berlin);
  set("2026-10-25T00:59:59");
  EXPECT_EQ(get(), "first");
  write("second");
  pass(3600 + 600);
  EXPECT_EQ(get(), "first");
  pass(1);
  EXPECT_EQ(get(), "second");
}

TEST_F(CachedFile, IsModifiedByAWriteInTheHourThatComesTwice) {
  const Zone zone(berlin);
  const auto date = [&](const char* utc) {
    const timespec times[2] = {{secondOf(utc), 0}, {secondOf(utc), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
  };
  date("2026-10-25T00:50:00"); // 02:50
  EXPECT_EQ(get(), "first");
  EXPECT_FALSE(isModified());
  date("2026-10-25T01:20:00"); // 02:20
  EXPECT_TRUE(isModified());
}

} // namespace
