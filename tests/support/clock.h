// Replaces the platform's clock in the test program by one that stands still until it is moved. For one source per
// program.
#pragma once

#include "qvxbase/qvbdate.h"

struct TestClock {
  static inline QvbDate now = [] {
    QvbDate start;
    start.assign(2026, 11, 21, 10, 15, 30, 250);
    return start;
  }();

  static void pass(int milliseconds) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
    now.getElements(&year, &month, &day, &hour, &minute, &second, &millisecond);
    now.assign(year, month, day, hour, minute, second, millisecond + milliseconds);
  }
};

QvbDate QvbDate::currentDate(bool) { return TestClock::now; }
