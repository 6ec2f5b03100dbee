// The text value that every interface of the library takes and returns.
//
// A QvbString is null, or a possibly empty run of bytes; UTF-8 by convention, and embedded zero bytes are
// kept. It is implicitly shared: a copy costs one atomic increment and never copies the text, and a change to
// one copy is never seen through another. Different threads may use different copies freely; one object is
// for one thread at a time.
//
// Null and empty differ in isNull() alone: every other operation treats null as empty text. Case is folded
// for the ASCII letters only, whatever the locale. Positions and counts are in bytes.
#pragma once

#include "qvxbase/qvbexport.h"

#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

class QVPLATFORM_API QvbString {
public:
  // Positions are signed: a search that finds nothing answers -1.
  using Index = std::ptrdiff_t;

  QvbString() noexcept = default; // null
  // Zero-terminated text; a null pointer makes a null text.
  QvbString(const char* text);
  QvbString(const char* bytes, std::size_t count);
  // Never null, even for a view of no bytes.
  explicit QvbString(std::string_view text);
  // All of them, one after the other; never null.
  static QvbString joined(std::span<const std::string_view> pieces);
  QvbString(const QvbString& other) noexcept : m_rep(other.m_rep) {
    if (m_rep)
      retain();
  }
  QvbString(QvbString&& other) noexcept : m_rep(std::exchange(other.m_rep, nullptr)) {}
  ~QvbString() {
    if (m_rep)
      release();
  }
  QvbString& operator=(const QvbString& other) noexcept { return *this = QvbString(other); }
  QvbString& operator=(QvbString&& other) noexcept {
    QvbString taken(std::move(other));
    std::swap(m_rep, taken.m_rep);
    return *this;
  }

  bool isNull() const noexcept { return !m_rep; }
  // Whether both are copies of one text. Equal texts need not be: this only spares a look at their bytes.
  bool isSharedWith(const QvbString& other) const noexcept { return m_rep == other.m_rep; }
  bool isEmpty() const noexcept { return length() == 0; }
  Index length() const noexcept;
  // The bytes that asCstr() spans, its closing zero included.
  std::size_t cStrSize() const noexcept { return static_cast<std::size_t>(length()) + 1; }
  // Zero-terminated, valid until this object's next change; never null.
  const char* asCstr() const noexcept;
  // The same bytes, embedded zeros included, valid as long as asCstr().
  std::string_view view() const noexcept;

  void setNull() noexcept { *this = QvbString(); }
  QvbString& assign(const char* text);
  QvbString& assign(const QvbString& text) noexcept;
  // Decimal text.
  QvbString& assign(int value);
  // Appending makes a null text non-null, even when nothing is added. `ok`, where given, becomes true; memory
  // that cannot be had is std::bad_alloc and leaves the text as it was.
  QvbString& append(const char* text, bool* ok = nullptr);
  QvbString& append(const QvbString& text, bool* ok = nullptr);
  QvbString& append(std::string_view text);
  // Makes room for a text of so many bytes: appending up to there moves nothing and cannot fail.
  QvbString& reserve(std::size_t bytes);

  // The number that the longest numeric prefix spells, after leading blanks; 0 when there is none. `ok` is
  // true only when the whole text was one number in range; out of range the nearest representable number is
  // the value. The decimal point is "." in every locale; "inf" and "nan" are no numbers.
  int asInt(bool* ok = nullptr) const noexcept;
  double asDouble(bool* ok = nullptr) const noexcept;

  // The first occurrence at or after `start`, or the last one anywhere; -1 when there is none.
  Index find(const QvbString& text, Index start = 0) const noexcept;
  Index find(std::string_view text, Index start = 0) const noexcept;
  Index find(const char* text, Index start = 0) const noexcept;
  Index rfind(const QvbString& text) const noexcept;
  Index rfind(std::string_view text) const noexcept;
  Index rfind(const char* text) const noexcept;

  // Parts of the text; a range that reaches beyond it is cut to it. The result is never null. A count of -1
  // means to the end.
  QvbString mid(Index start, Index count = -1) const;
  QvbString right(Index count) const;

  // These change the text in place. White space is what isspace() takes in the C locale.
  QvbString& lowercase();
  QvbString& trim(bool left = true, bool right = true);
  QvbString& trimChar(char character, bool left, bool right);

  // 0 for equal, negative when this text is the smaller, else positive; bytes are compared as unsigned
  // numbers, with upper-case ASCII letters taken as lower-case ones when `ignoreCase` is true.
  int compare(const QvbString& other, bool ignoreCase = false) const noexcept;
  int compare(std::string_view other, bool ignoreCase = false) const noexcept;
  int compare(const char* other, bool ignoreCase = false) const noexcept;

  // qvbHashIgnoreCase() of the text, found out once for all who share it.
  std::size_t hashIgnoreCase() const noexcept;

  friend bool operator<(const QvbString& a, const QvbString& b) noexcept { return a.view() < b.view(); }
  friend bool operator==(const QvbString& a, const QvbString& b) noexcept { return a.view() == b.view(); }

private:
  struct QVPLATFORM_HIDDEN Rep;

  // Neither is for a null text.
  void retain() const noexcept;
  void release() const noexcept;

  Rep* m_rep = nullptr;
};

// The text; an empty one for null.
inline QvbString qvbOrEmpty(const QvbString& text) { return text.isNull() ? QvbString("") : text; }

// A hash of the bytes with ASCII case folded: texts that compare() as equal without regard to case hash
// alike.
QVPLATFORM_API std::size_t qvbHashIgnoreCase(std::string_view text) noexcept;
// Whether compare() finds no difference without regard to case, found faster than their order.
QVPLATFORM_API bool qvbEqualsIgnoreCase(std::string_view a, std::string_view b) noexcept;
// As compare() without regard to case.
QVPLATFORM_API int qvbCompareIgnoreCase(std::string_view a, std::string_view b) noexcept;

// For hash tables whose keys are texts without regard to case. The hash is not declared noexcept, though it throws
// nothing: libstdc++ then keeps it beside each key, where otherwise it would compute it again for every neighbour that
// it passes.
struct QvbHashIgnoreCase {
  std::size_t operator()(const QvbString& text) const { return text.hashIgnoreCase(); }
};
struct QvbEqualIgnoreCase {
  bool operator()(const QvbString& a, const QvbString& b) const noexcept {
    return qvbEqualsIgnoreCase(a.view(), b.view());
  }
};
