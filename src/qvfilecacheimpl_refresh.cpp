#include "qvfilecacheimpl_refresh.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"

#include <algorithm>
#include <limits>

// Without a store of options every copy is old once any time has passed.
void RefreshInterval::readOption() {
  if (!Released<QvbConfigOptions>(qvbGetConfigOptions("")))
    return;
  constexpr const auto& option = QvbOptions::TimeBetweenChecks;
  const QvbOptionNumber number = qvbGetConfigNumber(option);
  m_milliseconds = number.value;
  if (!number.refused.isNull())
    m_log.error("Unable to parse time from parameter %s=%s", option.key, number.refused);
  else if (number.given.isNull())
    m_log.trace("Using default time between cache checked of %d", m_milliseconds);
  else
    // The whole number is shown with decimals.
    // Kept: FileCache.TakesItsIntervalFromTheOption
    m_log.lifecycle("Setting time between cache changed checks to %f milliseconds", m_milliseconds);
}

QvbDate RefreshInterval::expiryOf(const QvbDate& from) const {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
  from.getElements(&year, &month, &day, &hour, &minute, &second, &millisecond);
  millisecond += std::clamp(m_milliseconds, 0, std::numeric_limits<int>::max() - millisecond);
  QvbDate expiry;
  expiry.assign(year, month, day, hour, minute, second, millisecond);
  return expiry;
}

bool RefreshInterval::isFresh(const QvbDate& refreshed) const {
  if (refreshed.isNull())
    return false;
  const QvbDate now = QvbDate::currentDate(false);
  const QvbDate expiry = expiryOf(refreshed);
  if (m_log.isEnabled(QvLoggingLevel::Trace))
    m_log.trace("Cache updated time = \"%s\", if \"%s\" is greater than cache updated time, we update cache.",
                expiry.asString(false), now.asString(false));
  if (now.compare(expiry) > 0)
    return false;
  m_log.trace("Cache not updated yet...");
  return true;
}
