// When a copy counts as current: by its age alone, against the interval that an option sets.
#pragma once

#include "qvxbase/qvbdate.h"
#include "qvxlog/qvlog.h"

class RefreshInterval {
public:
  explicit RefreshInterval(const QvLog& log) : m_log(log) {}

  void readOption();
  // The moment from which a copy refreshed at `from` is refreshed again.
  QvbDate expiryOf(const QvbDate& from) const;
  // False for a copy that was never refreshed.
  bool isFresh(const QvbDate& refreshed) const;

private:
  const QvLog& m_log;
  int m_milliseconds = 0; // a negative number counts as 0
};
