#include "qvxlog/qvxlog.h"

#include "qvxbase/qvbconfig.h"
#include "support/allocations.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr std::array AllLevels = {QvLoggingLevel::Trace,   QvLoggingLevel::Lifecycle,
                                  QvLoggingLevel::Success, QvLoggingLevel::Anomaly,
                                  QvLoggingLevel::Error,   QvLoggingLevel::Critical};

void logAllLevels(QvLogger* logger) {
  for (const auto level : AllLevels)
    logger->logEvent(level, "src/tester", 12, "level %d", level);
}

// Counts how often it is read.
struct Costly {
  operator std::string_view() const {
    ++*reads;
    return "costly";
  }
  int* reads;
};

TEST(Log, GivesOneLoggerPerCategory) {
  QvLogger* logger = qvlogGetLogger("QV.Test.A");
  EXPECT_NE(logger, nullptr);
  EXPECT_EQ(qvlogGetLogger("QV.Test.A"), logger);
  EXPECT_NE(qvlogGetLogger("QV.Test.B"), logger);
  EXPECT_NE(qvlogGetLogger(nullptr), nullptr);
  EXPECT_EQ(qvlogGetLogger(nullptr), qvlogGetLogger(""));
}

TEST(Log, HandsEveryRecordOfEveryLevelToTheSink) {
  struct Keeper : QvLogSink {
    void record(const QvLogRecord& record) override { records.push_back(record); }
    std::vector<QvLogRecord> records;
  };
  const auto keeper = std::make_shared<Keeper>();
  QvLogger* logger = qvlogGetLogger("QV.Test.Sink");
  qvlogSetSink(keeper);
  logAllLevels(logger);
  logger->logEvent(QvLoggingLevel::Trace, nullptr, 0, "two\nlines %s", "\x1b[2J");
  qvlogSetSink(nullptr);
  ASSERT_EQ(keeper->records.size(), 7U);
  for (std::size_t i = 0; i < AllLevels.size(); ++i) {
    const QvLogRecord& record = keeper->records[i];
    EXPECT_EQ(record.category, QvbString("QV.Test.Sink"));
    EXPECT_EQ(record.level, AllLevels[i]);
    EXPECT_EQ(record.source, QvbString("src/tester"));
    EXPECT_EQ(record.line, 12);
    EXPECT_EQ(str(record.text), "level " + std::to_string(i + 1));
  }
  EXPECT_EQ(keeper->records[6].text, QvbString("two\nlines \x1b[2J"));
  EXPECT_TRUE(keeper->records[6].source.isEmpty());
}

TEST(Log, HandsRecordsOfLoggersMadeLaterToTheSink) {
  const LogCapture log;
  qvlogGetLogger("QV.Test.Later")->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "later");
  EXPECT_THAT(log.lines("QV.Test.Later"), ElementsAre(LogLine{"QV.Test.Later", 1, "src/tester", "later"}));
}

TEST(Log, EnablesEveryLevelWhileThereIsASink) {
  qvlogSetLevel(QvLoggingLevel::Critical);
  QvLogger* logger = qvlogGetLogger("QV.Test.Enabled");
  {
    const LogCapture log;
    EXPECT_TRUE(logger->isEnabled(QvLoggingLevel::Trace));
    EXPECT_TRUE(qvlogGetLogger("QV.Test.EnabledLater")->isEnabled(QvLoggingLevel::Trace));
  }
  EXPECT_FALSE(logger->isEnabled(QvLoggingLevel::Error));
  EXPECT_TRUE(logger->isEnabled(QvLoggingLevel::Critical));
  EXPECT_FALSE(qvlogGetLogger("QV.Test.EnabledLater")->isEnabled(QvLoggingLevel::Error));
}

TEST(Log, FormatsNothingForALevelThatIsOff) {
  qvlogSetLevel(QvLoggingLevel::Critical);
  QvLogger* logger = qvlogGetLogger("QV.Test.Costly");
  int reads = 0;
  logger->logEvent(QvLoggingLevel::Error, "src/tester", 1, "%s", Costly{&reads});
  EXPECT_EQ(reads, 0);
  const LogCapture log;
  logger->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "%s", Costly{&reads});
  EXPECT_EQ(reads, 1);
}

TEST(Log, LosesARecordThatMemoryIsShortForAndNothingElse) {
  const LogCapture log;
  QvLogger* logger = qvlogGetLogger("QV.Test.Short");
  const std::string text(1000, 'x');
  int lost = 0;
  for (long allocations = 0; log.lines("QV.Test.Short").empty(); ++allocations) {
    Allocations::left = allocations;
    EXPECT_NO_THROW(logger->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "%s", text.c_str()));
    Allocations::left = -1;
    ++lost;
  }
  EXPECT_GT(lost, 1);
  EXPECT_THAT(log.lines("QV.Test.Short"), ElementsAre(LogLine{"QV.Test.Short", 1, "src/tester", text}));
}

TEST(Log, GoesOnAfterALoggerThatMemoryWasShortFor) {
  const auto makeLogger = [] { return qvlogGetLogger("QV.Test.Unmade") != nullptr; };
  const auto reachEveryLogger = [] { qvlogSetLevel(QvLoggingLevel::Critical); };
  EXPECT_GE(withEverMoreMemory(makeLogger, reachEveryLogger), 3);
}

TEST(Log, EndsTheFormerSinkWhenItIsReplaced) {
  struct Speaker : QvLogSink {
    ~Speaker() override {
      qvlogGetLogger("QV.Test.Former")->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "gone");
    }
    void record(const QvLogRecord&) override {}
  };
  qvlogSetSink(std::make_shared<Speaker>());
  const LogCapture log;
  EXPECT_THAT(log.lines("QV.Test.Former"), ElementsAre(LogLine{"QV.Test.Former", 1, "src/tester", "gone"}));
}

TEST(Log, LetsASinkLog) {
  struct Echo : QvLogSink {
    void record(const QvLogRecord& record) override {
      texts.push_back(str(record.text));
      if (texts.size() == 1)
        qvlogGetLogger("QV.Test.Echo")->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "echo");
    }
    std::vector<std::string> texts;
  };
  const auto echo = std::make_shared<Echo>();
  qvlogSetSink(echo);
  qvlogGetLogger("QV.Test.Echo")->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "call");
  qvlogSetSink(nullptr);
  EXPECT_THAT(echo->texts, ElementsAre("call", "echo"));
}

TEST(Log, TakesRecordsOfManyThreadsWhileSinkAndLevelChange) {
  struct Counter : QvLogSink {
    void record(const QvLogRecord& record) override {
      ++count;
      broken += record.text != QvbString("text 7");
    }
    std::atomic<int> count{0};
    std::atomic<int> broken{0};
  };
  const auto counter = std::make_shared<Counter>();
  std::array<std::thread, 3> threads;
  for (auto& thread : threads)
    thread = std::thread([] {
      for (int n = 0; n < 500; ++n)
        qvlogGetLogger(("QV.Test." + std::to_string(n % 7)).c_str())
            ->logEvent(QvLoggingLevel::Success, "src/tester", 1, "text %d", 7);
    });
  for (int n = 0; n < 300; ++n) {
    qvlogSetSink(n % 2 ? counter : nullptr);
    qvlogSetLevel(n % 3 ? QvLoggingLevel::Error : QvLoggingLevel::Critical);
  }
  for (auto& thread : threads)
    thread.join();
  qvlogSetSink(counter);
  const int before = counter->count;
  qvlogGetLogger("QV.Test.0")->logEvent(QvLoggingLevel::Trace, "src/tester", 1, "text %d", 7);
  qvlogSetSink(nullptr);
  EXPECT_EQ(counter->count, before + 1);
  EXPECT_EQ(counter->broken, 0);
}

// Options and output are those of a fresh process: each case runs in one of its own, which starts this test
// anew and ends as a host does. It finds the folder in the environment.
class LogOutput : public testing::Test {
protected:
  LogOutput() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    if (!std::getenv("QVTEST_LOG")) {
      dir.emplace();
      ::setenv("QVTEST_LOG", dir->path().c_str(), 1);
    }
  }
  ~LogOutput() override { ::unsetenv("QVTEST_LOG"); }

  static QvbString path(const char* name) {
    return text(std::getenv("QVTEST_LOG") + std::string("/") + name);
  }
  static void setOption(const char* key, const QvbString& value) {
    qvbSetConfigOption(QvbString(key), value);
  }
  [[noreturn]] static void endAfterLogging(const char* category) {
    logAllLevels(qvlogGetLogger(category));
    std::exit(0);
  }
  static auto succeeds() { return testing::ExitedWithCode(0); }

  std::optional<TempDir> dir; // not in the fresh process
};

std::string line(const std::string& level, const std::string& rest) {
  return "[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+[.][0-9]+ " + level + " " + rest + "\n";
}

std::string levelLine(const std::string& level, int number) {
  return line(level, "\\[QV.Test\\] src/tester:12 level " + std::to_string(number));
}

TEST_F(LogOutput, WritesFromLevelFourToStandardError) {
  EXPECT_EXIT(endAfterLogging("QV.Test"), succeeds(),
              MatchesRegex(levelLine("warning", 4) + levelLine("error", 5) + levelLine("critical", 6)));
}

TEST_F(LogOutput, WritesFromTheLevelOfTheOption) {
  EXPECT_EXIT(
      {
        setOption("LOG/LEVEL", QvbString("1"));
        endAfterLogging("QV.Test");
      },
      succeeds(),
      MatchesRegex(levelLine("trace", 1) + levelLine("debug", 2) + levelLine("info", 3) +
                   levelLine("warning", 4) + levelLine("error", 5) + levelLine("critical", 6)));
  EXPECT_EXIT(
      {
        setOption("LOG/LEVEL", QvbString("6"));
        endAfterLogging("QV.Test");
      },
      succeeds(), MatchesRegex(levelLine("critical", 6)));
}

TEST_F(LogOutput, PrefersTheHostsLevelToTheOption) {
  EXPECT_EXIT(
      {
        setOption("LOG/LEVEL", QvbString("1"));
        qvlogSetLevel(QvLoggingLevel::Critical);
        logAllLevels(qvlogGetLogger("QV.Test"));
        qvlogSetLevel(QvLoggingLevel::Error);
        endAfterLogging("QV.Test");
      },
      succeeds(), MatchesRegex(levelLine("critical", 6) + levelLine("error", 5) + levelLine("critical", 6)));
}

TEST_F(LogOutput, ComplainsOfALevelThatIsNone) {
  for (const char* level : {"0", "7", "high", "4x", ""})
    EXPECT_EXIT(
        {
          setOption("LOG/LEVEL", QvbString(level));
          qvlogGetLogger("QV.Test")->logEvent(QvLoggingLevel::Success, "src/tester", 1, "unseen");
          std::exit(0);
        },
        succeeds(),
        MatchesRegex(line("error", std::string("\\[QV.Base.Log\\] platform/qvxlog/qvxlog:[0-9]+ "
                                               "LOG/LEVEL is not a level from 1 to 6: ") +
                                       level)));
}

TEST_F(LogOutput, GoesBehindWhatTheFileOfTheOptionHolds) {
  if (dir)
    dir->write("log.txt", "kept\n");
  EXPECT_EXIT(
      {
        setOption("LOG/FILE", path("log.txt"));
        endAfterLogging("QV.Test");
      },
      succeeds(), "^$");
  EXPECT_THAT(dir->read("log.txt"), MatchesRegex("kept\n" + levelLine("warning", 4) + levelLine("error", 5) +
                                                 levelLine("critical", 6)));
}

TEST_F(LogOutput, FallsBackToStandardErrorWhenTheFileCannotBeOpened) {
  EXPECT_EXIT(
      {
        setOption("LOG/LEVEL", QvbString("5"));
        setOption("LOG/FILE", path(""));
        endAfterLogging("QV.Test");
      },
      succeeds(),
      MatchesRegex(line("error", "\\[QV.Base.Log\\] platform/qvxlog/qvxlog:[0-9]+ "
                                 "LOG/FILE cannot be opened: " +
                                     str(path(""))) +
                   levelLine("error", 5) + levelLine("critical", 6)));
}

TEST_F(LogOutput, LosesWhatAFullDiskDoesNotTake) {
  EXPECT_EXIT(
      {
        setOption("LOG/FILE", QvbString("/dev/full"));
        endAfterLogging("QV.Test");
      },
      succeeds(), "^$");
}

TEST_F(LogOutput, MakesNoFolderForItsFile) {
  EXPECT_EXIT(
      {
        setOption("LOG/FILE", path("none/log.txt"));
        endAfterLogging("QV.Test");
      },
      succeeds(), HasSubstr("LOG/FILE cannot be opened: " + str(path("none/log.txt"))));
  EXPECT_FALSE(std::filesystem::exists(*dir / "none"));
}

TEST_F(LogOutput, EscapesWhatCouldPassForAnotherRecord) {
  EXPECT_EXIT(
      {
        qvlogGetLogger("QV.\nTest")
            ->logEvent(QvLoggingLevel::Error, "src/\ntester", 12, "%s",
                       "a\nb\r\t\x1b[2J\x7f\xc2\x9b \xc3\xa9");
        std::exit(0);
      },
      succeeds(),
      MatchesRegex(line("error", R"(\[QV.\\nTest\] src/\\ntester:12 a\\nb\\x0d\\t\\x1b\[2J\\x7f\\xc2\\x9b )"
                                 "\xc3\xa9")));
}

// The log reads its options from a file whose fault is itself logged.
class LogOfItsOwnOptions : public LogOutput {
protected:
  LogOfItsOwnOptions() {
    if (dir)
      dir->write("options.ini", "[LOG]\nLEVEL=5\nFILE=" + str(path("log.txt")) + "\nnonsense\n");
  }
  static void useOptionFile() { ::setenv("QV_CONFIG", path("options.ini").asCstr(), 1); }
  std::string complaint() const {
    return line("error", "\\[QV.Base.Config\\] platform/qvxbase/qvbconfig:[0-9]+ " +
                             str(path("options.ini")) + ":4: malformed option line");
  }
};

TEST_F(LogOfItsOwnOptions, TakesTheComplaintWhenTheFirstLoggerReadsThem) {
  EXPECT_EXIT(
      {
        useOptionFile();
        endAfterLogging("QV.Test");
      },
      succeeds(), "^$");
  EXPECT_THAT(dir->read("log.txt"),
              MatchesRegex(complaint() + levelLine("error", 5) + levelLine("critical", 6)));
}

TEST_F(LogOfItsOwnOptions, TakesTheComplaintWhenAnyOptionIsReadFirst) {
  EXPECT_EXIT(
      {
        useOptionFile();
        qvbGetConfigOption("BASE/A");
        std::exit(0);
      },
      succeeds(), "^$");
  EXPECT_THAT(dir->read("log.txt"), MatchesRegex(complaint()));
}

TEST_F(LogOfItsOwnOptions, TakesTheComplaintOnceWhenManyThreadsStart) {
  EXPECT_EXIT(
      {
        useOptionFile();
        std::vector<std::thread> threads(8);
        for (auto& thread : threads)
          thread = std::thread([] { qvlogGetLogger("QV.Test"); });
        for (auto& thread : threads)
          thread.join();
        std::exit(0);
      },
      succeeds(), "^$");
  EXPECT_THAT(dir->read("log.txt"), MatchesRegex(complaint()));
}

TEST_F(LogOutput, WorksWhileTheProcessEnds) {
  EXPECT_EXIT(
      {
        static const struct AtEnd {
          ~AtEnd() { logAllLevels(qvlogGetLogger("QV.Test")); }
        } atEnd;
        qvlogSetLevel(QvLoggingLevel::Critical);
        qvlogGetLogger("QV.Other");
        std::exit(0);
      },
      succeeds(), MatchesRegex(levelLine("critical", 6)));
}

} // namespace
