#include "qvxlog/qvlog.h"

#include "support/logcapture.h"

#include <gmock/gmock.h>

#include <string_view>
#include <vector>

using testing::ElementsAre;

namespace {

struct LineSink final : QvLogSink {
  void record(const QvLogRecord& record) override { lines.push_back(record.line); }
  std::vector<int> lines;
};

TEST(LogFront, SaysEachLevelUnderItsCategoryAndSource) {
  const LogCapture capture;
  const QvLog log("QV.Test.Front", "src/tester");
  log.trace("one");
  log.lifecycle("two of %d", 2);
  log.success("three");
  log.anomaly("four: 0x%p", static_cast<const void*>(nullptr));
  log.error("%s", "five");
  log.critical("six %d%%", 100);
  const auto line = [](int level, const char* text) {
    return LogLine{"QV.Test.Front", level, "src/tester", text};
  };
  EXPECT_THAT(capture.lines("QV.Test.Front"),
              ElementsAre(line(1, "one"), line(2, "two of 2"), line(3, "three"), line(4, "four: 0x(nil)"),
                          line(5, "five"), line(6, "six 100%")));
}

TEST(LogFront, TakesEveryKindOfTextAlike) {
  const LogCapture capture;
  const QvLog log("QV.Test.Texts", "src/tester");
  const QvbString text("text");
  log.trace("%s %s %s %s", text, text.view(), text.asCstr(), "text");
  log.trace("%s|%s|%s", QvbString(), std::string_view(), static_cast<const char*>(nullptr));
  EXPECT_THAT(capture.lines("QV.Test.Texts"),
              ElementsAre(LogLine{"QV.Test.Texts", 1, "src/tester", "text text text text"},
                          LogLine{"QV.Test.Texts", 1, "src/tester", "||"}));
}

TEST(LogFront, GivesTheLineOfTheCall) {
  const auto sink = std::make_shared<LineSink>();
  qvlogSetSink(sink);
  const QvLog log("QV.Test.Lines", "src/tester");
  const int before = __LINE__;
  log.trace("%d %d", 1, 2);
  log.unchecked(QvLoggingLevel::Error, "text");
  qvlogSetSink(nullptr);
  EXPECT_THAT(sink->lines, ElementsAre(before + 1, before + 2));
}

TEST(LogFront, PrintsTheConversionsOfAnUncheckedTextAsTheyStand) {
  const LogCapture capture;
  QvLog("QV.Test.Unchecked", "src/tester").unchecked(QvLoggingLevel::Success, "100%% of %s and %n");
  EXPECT_THAT(capture.lines("QV.Test.Unchecked"),
              ElementsAre(LogLine{"QV.Test.Unchecked", 3, "src/tester", "100% of %s and %n"}));
}

TEST(LogFront, KnowsWhatItsLoggerShows) {
  qvlogSetLevel(QvLoggingLevel::Error);
  const QvLog log("QV.Test.FrontEnabled", "src/tester");
  EXPECT_FALSE(log.isEnabled(QvLoggingLevel::Anomaly));
  EXPECT_TRUE(log.isEnabled(QvLoggingLevel::Error));
  qvlogSetLevel(QvLoggingLevel::Critical);
  EXPECT_FALSE(log.isEnabled(QvLoggingLevel::Error));
}

} // namespace
