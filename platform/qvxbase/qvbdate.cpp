#include "qvxbase/qvbdate.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <tuple>

#include <fmt/format.h>

namespace {

constexpr std::int64_t millisecondsPerDay = 86'400'000;
constexpr std::int64_t daysPerEra = 146'097; // 400 years, after which the calendar repeats

constexpr std::int64_t floorDivide(std::int64_t value, std::int64_t divisor) noexcept {
  return value / divisor - (value % divisor < 0);
}

struct CivilDay {
  std::int64_t year;
  int month;
  int day;
};

// Days since 1970-01-01 of the first day of a month. Years are counted from March here, so that the leap day
// is the last of its year and the days before a month follow one formula.
constexpr std::int64_t daysToMonth(std::int64_t year, int month) noexcept {
  const std::int64_t marchYear = year - (month <= 2);
  const std::int64_t era = floorDivide(marchYear, 400);
  const std::int64_t yearOfEra = marchYear - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5;
  return era * daysPerEra + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719'468;
}

constexpr CivilDay civilDay(std::int64_t days) noexcept {
  days += 719'468;
  const std::int64_t era = floorDivide(days, daysPerEra);
  const std::int64_t dayOfEra = days - era * daysPerEra;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const auto marchMonth = static_cast<int>((5 * dayOfYear + 2) / 153);
  const auto day = static_cast<int>(dayOfYear - (153 * marchMonth + 2) / 5 + 1);
  const int month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
  return {yearOfEra + era * 400 + (month <= 2), month, day};
}

int saturated(std::int64_t value) noexcept {
  return static_cast<int>(
      std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

void put(int* output, int value) noexcept {
  if (output)
    *output = value;
}

// The system counts years from 1900. That many years travel as months: the last year of all has room for no
// more.
QvbDate dateOf(std::time_t time, bool utc, int millisecond) {
  constexpr int MonthsTo1900 = 1900 * 12;
  std::tm elements{};
  QvbDate date;
  if (utc ? ::gmtime_r(&time, &elements) : ::localtime_r(&time, &elements))
    date.assign(elements.tm_year, elements.tm_mon + 1 + MonthsTo1900, elements.tm_mday, elements.tm_hour,
                elements.tm_min, elements.tm_sec, millisecond);
  return date;
}

} // namespace

QvbDate QvbDate::currentDate(bool utc) {
  using namespace std::chrono;
  const auto now = floor<milliseconds>(system_clock::now());
  const auto second = floor<seconds>(now);
  return dateOf(system_clock::to_time_t(second), utc, static_cast<int>((now - second).count()));
}

QvbDate QvbDate::fromEpoch(std::int64_t seconds) { return dateOf(seconds, false, 0); }

void QvbDate::assign(int year, int month, int day, int hour, int minute, int second, int millisecond) {
  const std::int64_t time = ((std::int64_t{hour} * 60 + minute) * 60 + second) * 1000 + millisecond;
  const std::int64_t extraDays = floorDivide(time, millisecondsPerDay);
  const std::int64_t extraYears = floorDivide(std::int64_t{month} - 1, 12);
  const auto inYear = static_cast<int>(month - extraYears * 12);
  const CivilDay civil = civilDay(daysToMonth(year + extraYears, inYear) + day - 1 + extraDays);
  const auto inDay = static_cast<int>(time - extraDays * millisecondsPerDay);

  m_null = false;
  m_year = saturated(civil.year);
  m_month = civil.month;
  m_day = civil.day;
  m_hour = inDay / 3'600'000;
  m_minute = inDay / 60'000 % 60;
  m_second = inDay / 1000 % 60;
  m_millisecond = inDay % 1000;
}

void QvbDate::getElements(int* year, int* month, int* day, int* hour, int* minute, int* second,
                          int* millisecond) const noexcept {
  put(year, m_year);
  put(month, m_month);
  put(day, m_day);
  put(hour, m_hour);
  put(minute, m_minute);
  put(second, m_second);
  put(millisecond, m_millisecond);
}

QvbString QvbDate::asString(bool dateOnly) const {
  if (m_null)
    return QvbString("");
  fmt::memory_buffer text;
  const auto out = fmt::appender(text);
  fmt::format_to(out, "{}{:04}-{:02}-{:02}", m_year < 0 ? "-" : "", std::abs(std::int64_t{m_year}), m_month,
                 m_day);
  if (!dateOnly)
    fmt::format_to(out, "T{:02}:{:02}:{:02}.{:03}", m_hour, m_minute, m_second, m_millisecond);
  return QvbString(text.data(), text.size());
}

double QvbDate::asDouble() const noexcept {
  if (m_null)
    return 0.0;
  const std::int64_t days = daysToMonth(m_year, m_month) + m_day - 1;
  const std::int64_t seconds = ((days * 24 + m_hour) * 60 + m_minute) * 60 + m_second;
  // From here on a double holds no part of a second, and the milliseconds would overflow.
  constexpr std::int64_t wholeSeconds = std::int64_t{1} << 53;
  if (std::abs(seconds) >= wholeSeconds)
    return static_cast<double>(seconds);
  return static_cast<double>(seconds * 1000 + m_millisecond) / 1000.0;
}

int QvbDate::compare(const QvbDate& other) const noexcept {
  const auto order = [](const QvbDate& date) {
    return std::tuple(!date.m_null, date.m_year, date.m_month, date.m_day, date.m_hour, date.m_minute,
                      date.m_second, date.m_millisecond);
  };
  const auto mine = order(*this);
  const auto theirs = order(other);
  return mine < theirs ? -1 : static_cast<int>(theirs < mine);
}
