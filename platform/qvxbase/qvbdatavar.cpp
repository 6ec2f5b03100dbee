#include "qvxbase/qvbdatavar.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array trueWords{"true", "yes", "on", "t", "y"};
constexpr std::array falseWords{"false", "no", "off", "f", "n"};

template<class Words>
bool isOneOf(const QvbString& text, const Words& words) noexcept {
  return std::any_of(words.begin(), words.end(),
                     [&](const char* word) { return qvbEqualsIgnoreCase(text.view(), word); });
}

} // namespace

bool QvbDatavar::asBool(bool* ok) const {
  QvbString text = m_text;
  text.trim();
  bool known = true;
  bool value = isOneOf(text, trueWords);
  if (!value && !isOneOf(text, falseWords))
    value = text.asDouble(&known) != 0.0 && known;
  if (ok)
    *ok = known;
  return value;
}
