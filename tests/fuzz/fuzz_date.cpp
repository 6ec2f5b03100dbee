// Any text: what is a date is written as one that reads the same. Any numbers: they carry into a date that reads back.
#include "fuzz.h"
#include "qvsstr/qvsstr.h"
#include "qvxbase/qvbdate.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

using Elements = std::array<int, 7>;

bool parse(const char* text, Elements* e) {
  return qvs_string_to_date_milli(text, &(*e)[0], &(*e)[1], &(*e)[2], &(*e)[3], &(*e)[4], &(*e)[5], &(*e)[6],
                                  2);
}
QvbDate dateOf(const Elements& e) {
  QvbDate date;
  date.assign(e[0], e[1], e[2], e[3], e[4], e[5], e[6]);
  return date;
}

// A date of four digits of a year reads back.
void checkWritten(const QvbDate& date) {
  Elements e{};
  date.getElements(&e[0], &e[1], &e[2], &e[3], &e[4], &e[5], &e[6]);
  require(e[1] >= 1 && e[1] <= 12 && e[2] >= 1 && e[2] <= 31 && e[3] >= 0 && e[3] < 24 && e[4] >= 0 &&
          e[4] < 60 && e[5] >= 0 && e[5] < 60 && e[6] >= 0 && e[6] < 1000);
  Elements again{};
  if (e[0] >= 1 && e[0] <= 9999)
    require(parse(date.asString().asCstr(), &again) && again == e && dateOf(again).compare(date) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString text = textOf(data, size);
  Elements elements{};
  elements.fill(-77);
  if (parse(text.asCstr(), &elements))
    checkWritten(dateOf(elements));
  else
    require(std::all_of(elements.begin(), elements.end(), [](int value) { return value == -77; }));
  Elements any{};
  if (size >= sizeof any) {
    std::memcpy(any.data(), data, sizeof any);
    const QvbDate date = dateOf(any);
    if (!date.isNull())
      checkWritten(date);
  }
  return 0;
}
