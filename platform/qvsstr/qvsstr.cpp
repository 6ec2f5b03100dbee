#include "qvsstr/qvsstr.h"

#include <chrono>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

// Lays characters into a buffer as long as they fit.
class FieldBuffer {
public:
  FieldBuffer(char* buffer, std::size_t size) : m_next(buffer), m_left(size) {}
  void put(char character) {
    if (m_left == 0) {
      m_full = true;
      return;
    }
    *m_next++ = character;
    --m_left;
  }
  bool isFull() const { return m_full; }

private:
  char* m_next;
  std::size_t m_left;
  bool m_full = false;
};

struct DateElements {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
};

// Takes a text apart from its front.
class Scanner {
public:
  explicit Scanner(std::string_view text) : m_rest(text) {}

  bool atEnd() const { return m_rest.empty(); }
  bool take(char character) { return takeAnyOf(std::string_view(&character, 1)) != '\0'; }
  // The character, 0 when it is none of them.
  char takeAnyOf(std::string_view characters) {
    if (m_rest.empty() || characters.find(m_rest.front()) == std::string_view::npos)
      return '\0';
    const char taken = m_rest.front();
    m_rest.remove_prefix(1);
    return taken;
  }
  // A number of exactly so many digits, in a range.
  bool takeNumber(int digits, int least, int most, int* value) {
    int number = 0;
    for (int i = 0; i < digits; ++i) {
      const char digit = takeAnyOf("0123456789");
      if (!digit)
        return false;
      number = number * 10 + (digit - '0');
    }
    *value = number;
    return number >= least && number <= most;
  }
  bool takeMilliseconds(int* value) {
    int weight = 100;
    int count = 0;
    for (char digit; (digit = takeAnyOf("0123456789")) != '\0'; ++count, weight /= 10)
      *value += weight * (digit - '0');
    return count > 0;
  }

private:
  std::string_view m_rest;
};

int daysOf(int year, int month) {
  using namespace std::chrono;
  return static_cast<int>(
      unsigned{year_month_day_last(std::chrono::year(year),
                                   month_day_last(std::chrono::month(static_cast<unsigned>(month))))
                   .day()});
}

bool scanDay(Scanner& text, DateElements& date) {
  return text.takeNumber(4, 0, 9999, &date.year) && text.take('-') &&
         text.takeNumber(2, 1, 12, &date.month) && text.take('-') &&
         text.takeNumber(2, 1, daysOf(date.year, date.month), &date.day);
}

bool scanTime(Scanner& text, DateElements& date) {
  if (!text.takeNumber(2, 0, 23, &date.hour) || !text.take(':') || !text.takeNumber(2, 0, 59, &date.minute))
    return false;
  if (!text.take(':'))
    return true;
  if (!text.takeNumber(2, 0, 59, &date.second))
    return false;
  return !text.take('.') || text.takeMilliseconds(&date.millisecond);
}

// "Z", or a sign, hours and perhaps minutes, with or without ":" between them; in seconds east of Greenwich.
bool scanOffset(Scanner& text, int* seconds) {
  if (text.take('Z'))
    return true;
  const char sign = text.takeAnyOf("+-");
  int hours = 0;
  int minutes = 0;
  if (!sign || !text.takeNumber(2, 0, 23, &hours))
    return false;
  if ((text.take(':') || !text.atEnd()) && !text.takeNumber(2, 0, 59, &minutes))
    return false;
  const int distance = (hours * 60 + minutes) * 60;
  *seconds = sign == '-' ? -distance : distance;
  return true;
}

bool convertToLocal(DateElements& date, int offset) {
  std::tm elements{};
  elements.tm_year = date.year - 1900;
  elements.tm_mon = date.month - 1;
  elements.tm_mday = date.day;
  elements.tm_hour = date.hour;
  elements.tm_min = date.minute;
  elements.tm_sec = date.second;
  const std::time_t moment = ::timegm(&elements) - offset;
  if (!::localtime_r(&moment, &elements))
    return false;
  date = {elements.tm_year + 1900, elements.tm_mon + 1, elements.tm_mday, elements.tm_hour,
          elements.tm_min,         elements.tm_sec,     date.millisecond};
  return true;
}

bool scanDate(Scanner text, DateElements& date) {
  if (!scanDay(text, date))
    return false;
  if (text.atEnd())
    return true;
  if (!text.takeAnyOf("T ") || !scanTime(text, date))
    return false;
  if (text.atEnd())
    return true;
  int offset = 0;
  return scanOffset(text, &offset) && text.atEnd() && convertToLocal(date, offset);
}

} // namespace

int qvs_parse_text_ex2(const char* text, char separator, char quote, char* buffer, std::size_t bufferSize,
                       char** fields, int maxFields) {
  FieldBuffer out(buffer, bufferSize);
  int count = 1;
  bool isQuoted = false;
  for (const char* at = text; *at && count <= maxFields; ++at) {
    if (*at == quote && isQuoted && at[1] == quote) {
      out.put(*at++);
    } else if (*at == quote) {
      isQuoted = !isQuoted;
    } else if (*at == separator && !isQuoted) {
      out.put('\0');
      ++count;
    } else {
      out.put(*at);
    }
  }
  out.put('\0');
  if (isQuoted || out.isFull() || count > maxFields)
    return -1;
  for (int i = 0; i < count; ++i, buffer += std::strlen(buffer) + 1)
    fields[i] = buffer;
  return count;
}

bool qvs_string_to_date_milli(const char* text, int* year, int* month, int* day, int* hour, int* minute,
                              int* second, int* millisecond, int form) {
  constexpr int Iso8601 = 2;
  DateElements date;
  if (!text || form != Iso8601 || !scanDate(Scanner(text), date))
    return false;
  *year = date.year;
  *month = date.month;
  *day = date.day;
  *hour = date.hour;
  *minute = date.minute;
  *second = date.second;
  *millisecond = date.millisecond;
  return true;
}
