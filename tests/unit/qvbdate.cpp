#include "qvxbase/qvbdate.h"

#include "support/textio.h"
#include "support/zone.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>
#include <chrono>
#include <climits>
#include <ctime>
#include <tuple>
#include <vector>

namespace {

using Elements = std::array<int, 7>;

QvbDate date(const Elements& e) {
  QvbDate made;
  made.assign(e[0], e[1], e[2], e[3], e[4], e[5], e[6]);
  return made;
}

Elements elements(const QvbDate& value) {
  Elements e{};
  value.getElements(&e[0], &e[1], &e[2], &e[3], &e[4], &e[5], &e[6]);
  return e;
}

TEST(QvbDate, StartsNullWithNothingToShow) {
  const QvbDate null;
  EXPECT_TRUE(null.isNull());
  EXPECT_EQ(elements(null), Elements{});
  EXPECT_EQ(null.asString(), QvbString(""));
  EXPECT_FALSE(null.asString().isNull());
  EXPECT_EQ(null.asDouble(), 0.0);
}

TEST(QvbDate, BecomesNullAgain) {
  QvbDate value = date({2026, 11, 21, 10, 15, 30, 250});
  EXPECT_FALSE(value.isNull());
  value.setNull();
  EXPECT_TRUE(value.isNull());
  EXPECT_EQ(elements(value), Elements{});
}

TEST(QvbDate, GivesBackSingleElements) {
  int day = 0;
  date({2026, 11, 21, 10, 15, 30, 250})
      .getElements(nullptr, nullptr, &day, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(day, 21);
}

TEST(QvbDate, CarriesOverflowIntoTheNextElement) {
  const std::vector<std::pair<Elements, const char*>> table = {
      {{2026, 11, 21, 10, 15, 30, 250}, "2026-11-21T10:15:30.250"},
      {{2026, 1, 1, 0, 0, 61, 0}, "2026-01-01T00:01:01.000"},
      {{2026, 1, 1, 0, 0, 0, 1001}, "2026-01-01T00:00:01.001"},
      {{2026, 12, 31, 23, 59, 59, 1000}, "2027-01-01T00:00:00.000"},
      {{2026, 13, 1, 0, 0, 0, 0}, "2027-01-01T00:00:00.000"},
      {{2026, 25, 1, 0, 0, 0, 0}, "2028-01-01T00:00:00.000"},
      {{2026, 0, 1, 0, 0, 0, 0}, "2025-12-01T00:00:00.000"},
      {{2026, -12, 1, 0, 0, 0, 0}, "2024-12-01T00:00:00.000"},
      {{2026, 3, 0, 0, 0, 0, 0}, "2026-02-28T00:00:00.000"},
      {{2024, 3, 0, 0, 0, 0, 0}, "2024-02-29T00:00:00.000"},
      {{1900, 3, 0, 0, 0, 0, 0}, "1900-02-28T00:00:00.000"},
      {{2000, 3, 0, 0, 0, 0, 0}, "2000-02-29T00:00:00.000"},
      {{2026, 1, 1, 0, 0, 0, -1}, "2025-12-31T23:59:59.999"},
      {{2026, 1, 1, -1, 0, 0, 0}, "2025-12-31T23:00:00.000"},
      {{2026, 1, 1, 24, 60, 60, 1000}, "2026-01-02T01:01:01.000"},
      {{2026, 1, 366, 0, 0, 0, 0}, "2027-01-01T00:00:00.000"},
      {{1970, 1, 1, 0, 0, 0, 0}, "1970-01-01T00:00:00.000"},
      {{1, 1, 1, 0, 0, 0, 0}, "0001-01-01T00:00:00.000"},
      {{0, 1, 0, 0, 0, 0, 0}, "-0001-12-31T00:00:00.000"},
      {{12345, 6, 7, 0, 0, 0, 0}, "12345-06-07T00:00:00.000"},
  };
  for (const auto& [given, expected] : table)
    EXPECT_EQ(date(given).asString(), QvbString(expected));
}

TEST(QvbDate, StopsAtTheLastYearThereIs) {
  EXPECT_EQ(elements(date({INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX}))[0], INT_MAX);
  EXPECT_EQ(elements(date({INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN}))[0], INT_MIN);
  EXPECT_EQ(date({INT_MIN, 1, 1, 0, 0, 0, 0}).asString(true), QvbString("-2147483648-01-01"));
}

TEST(QvbDate, ShowsTheDateAlone) {
  EXPECT_EQ(date({2026, 1, 2, 10, 15, 30, 250}).asString(true), QvbString("2026-01-02"));
}

TEST(QvbDate, CountsSecondsOfTheElementsAsTheyStand) {
  EXPECT_EQ(date({1970, 1, 1, 0, 0, 0, 0}).asDouble(), 0.0);
  EXPECT_EQ(date({1970, 1, 1, 0, 0, 0, 250}).asDouble(), 0.25);
  EXPECT_EQ(date({1969, 12, 31, 23, 59, 59, 0}).asDouble(), -1.0);
  EXPECT_EQ(date({2026, 11, 21, 10, 15, 30, 250}).asDouble(), 1795256130.25);
}

TEST(QvbDate, CountsTheSecondsOfTheFirstAndTheLastYear) {
  EXPECT_EQ(date({INT_MAX, 12, 31, 23, 59, 59, 999}).asDouble(), 67767976233532799.0);
  EXPECT_LT(date({INT_MIN, 1, 1, 0, 0, 0, 0}).asDouble(), -67767976233532799.0);
}

TEST(QvbDate, ComparesNullAsEarliest) {
  const QvbDate null;
  const QvbDate ancient = date({-5000, 1, 1, 0, 0, 0, 0});
  EXPECT_EQ(null.compare(QvbDate()), 0);
  EXPECT_LT(null.compare(ancient), 0);
  EXPECT_GT(ancient.compare(null), 0);
}

TEST(QvbDate, ComparesElementByElement) {
  const Elements base{2026, 6, 15, 12, 30, 30, 500};
  EXPECT_EQ(date(base).compare(date(base)), 0);
  for (std::size_t i = 0; i < base.size(); ++i) {
    Elements later = base;
    ++later[i];
    EXPECT_LT(date(base).compare(date(later)), 0) << i;
    EXPECT_GT(date(later).compare(date(base)), 0) << i;
  }
}

TEST(QvbDate, NormalisesLikeTheCalendarOfTheSystem) {
  EXPECT_TRUE(rc::check([] {
    const auto seconds = *rc::gen::inRange<std::int64_t>(-60'000'000'000, 200'000'000'000);
    const auto time = static_cast<std::time_t>(seconds);
    std::tm expected{};
    RC_ASSERT(::gmtime_r(&time, &expected) != nullptr);
    const auto day = static_cast<int>(seconds / 86'400);
    const QvbDate value = date({1970, 1, 1 + day, 0, 0, static_cast<int>(seconds % 86'400), 0});
    RC_ASSERT(elements(value) == (Elements{expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday,
                                           expected.tm_hour, expected.tm_min, expected.tm_sec, 0}));
    RC_ASSERT(value.asDouble() == static_cast<double>(seconds));
  }));
}

TEST(QvbDate, OrdersAsTheSecondsDo) {
  EXPECT_TRUE(rc::check([] {
    const auto element = rc::gen::inRange(-100'000, 100'000);
    const auto any = [&] { return date({2000, *element, *element, *element, *element, *element, *element}); };
    const QvbDate a = any();
    const QvbDate b = any();
    RC_ASSERT((a.compare(b) < 0) == (a.asDouble() < b.asDouble()));
    RC_ASSERT((a.compare(b) == 0) == (a.asDouble() == b.asDouble()));
    RC_ASSERT(date(elements(a)).compare(a) == 0);
  }));
}

// The zone's name and rules are read from TZ, so that the offset is known: local time is 3.5 hours behind.
class QvbDateInAZone : public testing::Test {
protected:
  static double sinceEpoch() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  }

private:
  const Zone m_zone{"XST3:30"};
};

TEST_F(QvbDateInAZone, NowIsTheClockInUtc) {
  const double before = sinceEpoch();
  const double now = QvbDate::currentDate(true).asDouble();
  const double after = sinceEpoch();
  EXPECT_GE(now, before - 0.001);
  EXPECT_LE(now, after);
}

TEST_F(QvbDateInAZone, NowIsTheClockInLocalTimeUnlessToldOtherwise) {
  const double before = sinceEpoch();
  const double now = QvbDate::currentDate().asDouble() + 3.5 * 3600;
  const double after = sinceEpoch();
  EXPECT_GE(now, before - 0.001);
  EXPECT_LE(now, after);
}

TEST_F(QvbDateInAZone, ShowsAMomentSinceTheEpochInLocalTime) {
  const std::vector<std::pair<std::int64_t, const char*>> table = {
      {0, "1969-12-31T20:30:00.000"},
      {1'795'256'130, "2026-11-21T06:45:30.000"},
      {-1, "1969-12-31T20:29:59.000"},
      {-62'167'219'200, "-0001-12-31T20:30:00.000"},
      {253'402'300'800, "9999-12-31T20:30:00.000"},
  };
  for (const auto& [seconds, expected] : table)
    EXPECT_EQ(QvbDate::fromEpoch(seconds).asString(), QvbString(expected));
}

TEST_F(QvbDateInAZone, AMomentBeyondTheYearsOfTheCalendarIsNull) {
  EXPECT_EQ(elements(QvbDate::fromEpoch(67'767'976'233'532'799))[0], INT_MAX);
  EXPECT_TRUE(QvbDate::fromEpoch(INT64_MAX).isNull());
  EXPECT_TRUE(QvbDate::fromEpoch(INT64_MIN).isNull());
}

} // namespace
