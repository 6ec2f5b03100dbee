// A calendar date and time of seven elements without a zone, or null.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstdint>

class QVPLATFORM_API QvbDate {
public:
  QvbDate() noexcept = default; // null

  // Now, in local time or (utc true) in UTC, to the millisecond.
  static QvbDate currentDate(bool utc = false);
  // The local time at which so many seconds had passed since 1970-01-01T00:00:00 UTC; null for a moment whose
  // year is no int.
  static QvbDate fromEpoch(std::int64_t seconds);

  bool isNull() const noexcept { return m_null; }
  void setNull() noexcept { *this = QvbDate(); }

  // Elements out of their range carry into the next: 61 seconds are a minute and a second, month 13 is
  // January of the next year, day 0 the last day of the month before. Proleptic Gregorian calendar, month and
  // day from 1.
  void assign(int year, int month, int day, int hour, int minute, int second, int millisecond);
  // All seven elements; 0 each for a null date. Outputs may be null.
  void getElements(int* year, int* month, int* day, int* hour, int* minute, int* second,
                   int* millisecond) const noexcept;

  // ISO 8601: "2026-11-21T10:15:30.250", or the date alone when `dateOnly`. Empty for a null date.
  QvbString asString(bool dateOnly = false) const;
  // Seconds since 1970-01-01T00:00:00 of the elements as they stand, so that moment is 0.0; 0.0 for a null
  // date.
  double asDouble() const noexcept;

  // Negative, 0 or positive; a null date is before every date and equal to null.
  int compare(const QvbDate& other) const noexcept;

private:
  bool m_null = true;
  int m_year = 0;
  int m_month = 0;
  int m_day = 0;
  int m_hour = 0;
  int m_minute = 0;
  int m_second = 0;
  int m_millisecond = 0;
};
