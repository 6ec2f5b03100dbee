// The cursor that every list of the library shares.
#pragma once

#include <cstddef>

// A position over rows that are only ever appended. It is before the first row until the first next(), then on a row,
// and once it has passed the last row it stays past it, whatever is appended later.
class ListCursor {
public:
  bool next(std::size_t rowCount) {
    if (!m_started) {
      m_started = true;
      place(0, rowCount);
    } else if (m_row != pastEnd) {
      place(m_row + 1, rowCount);
    }
    return m_row != pastEnd;
  }
  // Moves without touching the started state, as a search through the rows does.
  void place(std::size_t row, std::size_t rowCount) { m_row = row < rowCount ? row : pastEnd; }
  void reset() { *this = ListCursor(); }
  // The next next() starts again at the first row, wherever the cursor stands.
  void restart() { m_started = false; }

  bool onRow() const { return m_row != pastEnd; }
  std::size_t row() const { return m_row; }

private:
  static constexpr std::size_t pastEnd = static_cast<std::size_t>(-1);

  std::size_t m_row = pastEnd;
  bool m_started = false;
};
