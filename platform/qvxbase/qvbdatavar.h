// A value with a type code, read back as another type.
#pragma once

#include "qvxbase/qvbstring.h"

class QVPLATFORM_API QvbDatavar {
public:
  static constexpr int TypeText = 2;

  int getType() const noexcept { return m_type; }
  void setType(int type) noexcept { m_type = type; }
  void assign(const QvbString& text) noexcept { m_text = text; }

  // True for true, yes, on, t, y and 1 in any case and for every other number that is not zero. `ok` is true
  // when the text was one of those, one of false, no, off, f, n and 0, or a number. White space around it is
  // ignored.
  bool asBool(bool* ok = nullptr) const;

private:
  int m_type = TypeText;
  QvbString m_text;
};
