#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <climits>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

static_assert(sizeof(QvbString) <= 16, "the interfaces return texts by value everywhere");

// The shared text: this header, the bytes right behind it, and their closing zero.
struct QvbString::Rep {
  std::atomic<std::size_t> count;
  std::size_t length;
  std::size_t capacity;
  std::atomic<std::size_t> hash; // without regard to case; 0 until somebody asks

  static constexpr std::size_t MaxLength = PTRDIFF_MAX - 64;

  // A text of no bytes yet, with room for `capacity`, that the caller owns.
  static Rep* make(std::size_t capacity) {
    if (capacity > MaxLength)
      throw std::bad_alloc();
    auto* rep = new (::operator new(sizeof(Rep) + capacity + 1)) Rep{{1}, 0, capacity, {0}};
    rep->setLength(0);
    return rep;
  }
  static Rep* make(std::string_view content) {
    if (content.empty())
      return empty();
    Rep* rep = make(content.size());
    std::memcpy(rep->text(), content.data(), content.size());
    rep->setLength(content.size());
    return rep;
  }
  // The empty text of all, which is never counted, changed or freed.
  static Rep* empty() noexcept;

  char* text() noexcept { return reinterpret_cast<char*>(this) + sizeof(Rep); }
  void setLength(std::size_t value) noexcept {
    length = value;
    text()[value] = '\0';
    hash.store(0, std::memory_order_relaxed);
  }
  bool isUnshared() const noexcept { return this != empty() && count.load(std::memory_order_acquire) == 1; }
};

QvbString::Rep* QvbString::Rep::empty() noexcept {
  static constinit struct {
    Rep rep;
    char terminator;
  } shared{{{1}, 0, 0, {0}}, '\0'};
  return &shared.rep;
}

namespace {

constexpr std::string_view whiteSpace = " \t\n\v\f\r";

constexpr bool isUpper(char character) noexcept { return character >= 'A' && character <= 'Z'; }

constexpr char toLower(char character) noexcept {
  return isUpper(character) ? static_cast<char>(character | 0x20) : character;
}

std::string_view viewOf(const char* text) noexcept { return text ? std::string_view(text) : ""; }

QvbString::Index indexOf(std::size_t position) noexcept {
  return position == std::string_view::npos ? -1 : static_cast<QvbString::Index>(position);
}

std::string_view strip(std::string_view text, std::string_view characters, bool left, bool right) noexcept {
  if (left)
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
  if (right)
    text = text.substr(0, text.find_last_not_of(characters) + 1);
  return text;
}

// The text from where its number may begin. from_chars takes no blanks and no "+".
std::string_view numberStart(std::string_view text) noexcept {
  text = strip(text, whiteSpace, true, false);
  if (text.starts_with('+') && !text.starts_with("+-"))
    text.remove_prefix(1);
  return text;
}

// "inf" and "nan" are words here, not numbers.
bool startsNumber(std::string_view text) noexcept {
  if (text.starts_with('-'))
    text.remove_prefix(1);
  return !text.empty() && ((text.front() >= '0' && text.front() <= '9') || text.front() == '.');
}

int nearest(int, std::string_view text) noexcept { return text.starts_with('-') ? INT_MIN : INT_MAX; }

// from_chars does not tell too large from too small.
double nearest(double, std::string_view text) noexcept {
  static const locale_t classic = ::newlocale(LC_ALL_MASK, "C", nullptr);
  const double value = ::strtod_l(text.data(), nullptr, classic);
  constexpr double limit = std::numeric_limits<double>::max();
  return std::clamp(value, -limit, limit);
}

// `text` is zero-terminated.
template<class Number>
Number parseNumber(std::string_view text, bool* ok) noexcept {
  text = numberStart(text);
  Number value = 0;
  bool whole = false;
  if (startsNumber(text)) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    whole = error == std::errc() && end == text.data() + text.size();
    if (error == std::errc::result_out_of_range)
      value = nearest(value, text);
  }
  if (ok)
    *ok = whole;
  return value;
}

std::uint64_t wordAt(const char* bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// The last eight bytes, some of which may belong to the word before; of a shorter text all bytes, then zeros.
std::uint64_t lastWord(std::string_view text) noexcept {
  if (text.size() >= sizeof(std::uint64_t))
    return wordAt(text.data() + text.size() - sizeof(std::uint64_t));
  std::uint64_t word = 0;
  for (; !text.empty(); text.remove_suffix(1))
    word = word << 8 | static_cast<unsigned char>(text.back());
  return word;
}

// Eight bytes with their ASCII upper-case letters made lower-case.
constexpr std::uint64_t folded(std::uint64_t word) noexcept {
  constexpr std::uint64_t every = 0x0101010101010101;
  const std::uint64_t low = word & (every * 0x7f);
  const std::uint64_t fromA = low + every * (0x80 - 'A');
  const std::uint64_t beyondZ = low + every * (0x7f - 'Z');
  const std::uint64_t upper = ~word & (fromA ^ beyondZ) & (every * 0x80);
  return word | (upper >> 2);
}

// The first byte is a word's lowest.
int compareFolded(std::uint64_t a, std::uint64_t b) noexcept {
  if (a == b)
    return 0;
  const std::uint64_t left = __builtin_bswap64(folded(a));
  const std::uint64_t right = __builtin_bswap64(folded(b));
  return (left > right) - (left < right);
}

int compareFolded(std::string_view a, std::string_view b) noexcept {
  const std::size_t common = std::min(a.size(), b.size());
  int order = 0;
  if (a.data() != b.data()) {
    std::size_t at = 0;
    for (; order == 0 && at + sizeof(std::uint64_t) < common; at += sizeof(std::uint64_t))
      order = compareFolded(wordAt(a.data() + at), wordAt(b.data() + at));
    if (order == 0)
      order = compareFolded(lastWord(a.substr(0, common)), lastWord(b.substr(0, common)));
  }
  return order != 0 ? order : (a.size() > b.size()) - (a.size() < b.size());
}

} // namespace

QvbString::QvbString(const char* text) : m_rep(text ? Rep::make(std::string_view(text)) : nullptr) {}

QvbString::QvbString(const char* bytes, std::size_t count)
    : m_rep(bytes ? Rep::make(std::string_view(bytes, count)) : nullptr) {}

QvbString::QvbString(std::string_view text) : m_rep(Rep::make(text)) {}

QvbString QvbString::joined(std::span<const std::string_view> pieces) {
  std::size_t size = 0;
  for (const auto piece : pieces) {
    if (piece.size() > Rep::MaxLength - size)
      throw std::bad_alloc();
    size += piece.size();
  }
  QvbString whole("");
  if (size == 0)
    return whole;
  whole.m_rep = Rep::make(size);
  char* end = whole.m_rep->text();
  for (const auto piece : pieces)
    end = std::copy(piece.begin(), piece.end(), end);
  whole.m_rep->setLength(size);
  return whole;
}

void QvbString::retain() const noexcept {
  if (m_rep != Rep::empty())
    m_rep->count.fetch_add(1, std::memory_order_relaxed);
}

void QvbString::release() const noexcept {
  if (m_rep != Rep::empty() && m_rep->count.fetch_sub(1, std::memory_order_acq_rel) == 1)
    ::operator delete(m_rep);
}

QvbString::Index QvbString::length() const noexcept { return m_rep ? static_cast<Index>(m_rep->length) : 0; }

const char* QvbString::asCstr() const noexcept { return m_rep ? m_rep->text() : ""; }

std::string_view QvbString::view() const noexcept {
  return m_rep ? std::string_view(m_rep->text(), m_rep->length) : std::string_view("");
}

QvbString& QvbString::assign(const char* text) { return *this = QvbString(text); }

QvbString& QvbString::assign(const QvbString& text) noexcept { return *this = text; }

QvbString& QvbString::assign(int value) {
  char digits[16];
  const auto result = std::to_chars(std::begin(digits), std::end(digits), value);
  return *this = QvbString(digits, static_cast<std::size_t>(result.ptr - digits));
}

QvbString& QvbString::append(const char* text, bool* ok) {
  append(viewOf(text));
  if (ok)
    *ok = true;
  return *this;
}

QvbString& QvbString::append(const QvbString& text, bool* ok) {
  if (isEmpty() && !text.isNull())
    *this = text;
  else
    append(text.view());
  if (ok)
    *ok = true;
  return *this;
}

// The added bytes may be this text's own.
QvbString& QvbString::append(std::string_view text) {
  const std::string_view old = view();
  if (text.empty()) {
    if (!m_rep)
      m_rep = Rep::empty();
    return *this;
  }
  if (text.size() > Rep::MaxLength - old.size())
    throw std::bad_alloc();
  const std::size_t total = old.size() + text.size();
  if (m_rep && m_rep->isUnshared() && total <= m_rep->capacity) {
    std::memmove(m_rep->text() + old.size(), text.data(), text.size());
  } else {
    QvbString grown;
    grown.m_rep = Rep::make(std::min(std::max(total, old.size() * 2), Rep::MaxLength));
    std::memcpy(grown.m_rep->text(), old.data(), old.size());
    std::memcpy(grown.m_rep->text() + old.size(), text.data(), text.size());
    std::swap(m_rep, grown.m_rep);
  }
  m_rep->setLength(total);
  return *this;
}

QvbString& QvbString::reserve(std::size_t bytes) {
  const std::string_view old = view();
  if (m_rep && m_rep->isUnshared() && bytes <= m_rep->capacity)
    return *this;
  QvbString roomy;
  roomy.m_rep = Rep::make(std::max(bytes, old.size()));
  std::memcpy(roomy.m_rep->text(), old.data(), old.size());
  roomy.m_rep->setLength(old.size());
  std::swap(m_rep, roomy.m_rep);
  return *this;
}

int QvbString::asInt(bool* ok) const noexcept { return parseNumber<int>(view(), ok); }

double QvbString::asDouble(bool* ok) const noexcept { return parseNumber<double>(view(), ok); }

QvbString::Index QvbString::find(const QvbString& text, Index start) const noexcept {
  return find(text.view(), start);
}

QvbString::Index QvbString::find(std::string_view text, Index start) const noexcept {
  return indexOf(view().find(text, static_cast<std::size_t>(std::max<Index>(start, 0))));
}

QvbString::Index QvbString::find(const char* text, Index start) const noexcept {
  return find(viewOf(text), start);
}

QvbString::Index QvbString::rfind(const QvbString& text) const noexcept { return rfind(text.view()); }

QvbString::Index QvbString::rfind(std::string_view text) const noexcept {
  return indexOf(view().rfind(text));
}

QvbString::Index QvbString::rfind(const char* text) const noexcept { return rfind(viewOf(text)); }

QvbString QvbString::mid(Index start, Index count) const {
  const Index size = length();
  const Index first = std::clamp<Index>(start, 0, size);
  Index last = size;
  if (count != -1 && start < size) // start + count cannot overflow: one of them is cut first
    last = std::max(first, start < 0 ? std::min(size, start + std::max<Index>(count, 0))
                                     : first + std::clamp<Index>(count, 0, size - first));
  if (m_rep && first == 0 && last == size)
    return *this;
  return QvbString(view().substr(static_cast<std::size_t>(first), static_cast<std::size_t>(last - first)));
}

QvbString QvbString::right(Index count) const {
  const Index size = length();
  return mid(size - std::clamp<Index>(count, 0, size));
}

QvbString& QvbString::lowercase() {
  const std::string_view old = view();
  if (std::none_of(old.begin(), old.end(), isUpper))
    return *this;
  if (!m_rep->isUnshared())
    *this = QvbString(old);
  std::transform(m_rep->text(), m_rep->text() + m_rep->length, m_rep->text(), toLower);
  return *this;
}

QvbString& QvbString::trim(bool left, bool right) {
  const std::string_view kept = strip(view(), whiteSpace, left, right);
  return kept.size() == view().size() ? *this : *this = QvbString(kept);
}

QvbString& QvbString::trimChar(char character, bool left, bool right) {
  const std::string_view kept = strip(view(), std::string_view(&character, 1), left, right);
  return kept.size() == view().size() ? *this : *this = QvbString(kept);
}

int QvbString::compare(const QvbString& other, bool ignoreCase) const noexcept {
  return compare(other.view(), ignoreCase);
}

int QvbString::compare(std::string_view other, bool ignoreCase) const noexcept {
  return ignoreCase ? compareFolded(view(), other) : view().compare(other);
}

int QvbString::compare(const char* other, bool ignoreCase) const noexcept {
  return compare(viewOf(other), ignoreCase);
}

std::size_t qvbHashIgnoreCase(std::string_view text) noexcept {
  std::uint64_t hash = text.size();
  const auto add = [&hash](std::uint64_t word) {
    hash = (hash ^ folded(word)) * 0x9e3779b97f4a7c15;
    hash ^= hash >> 29;
  };
  for (std::size_t at = 0; at + sizeof(std::uint64_t) < text.size(); at += sizeof(std::uint64_t))
    add(wordAt(text.data() + at));
  add(lastWord(text));
  return hash;
}

std::size_t QvbString::hashIgnoreCase() const noexcept {
  if (isEmpty())
    return 0;
  std::size_t hash = m_rep->hash.load(std::memory_order_relaxed);
  if (hash == 0) {
    hash = qvbHashIgnoreCase(view());
    m_rep->hash.store(hash, std::memory_order_relaxed);
  }
  return hash;
}

bool qvbEqualsIgnoreCase(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && compareFolded(a, b) == 0;
}

int qvbCompareIgnoreCase(std::string_view a, std::string_view b) noexcept { return compareFolded(a, b); }
