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
    } else if (m_row != PastEnd) {
      place(m_row + 1, rowCount);
    }
    return m_row != PastEnd;
  }
  // Moves without touching the started state, as a search through the rows does.
  void place(std::size_t row, std::size_t rowCount) { m_row = row < rowCount ? row : PastEnd; }
  void reset() { *this = ListCursor(); }
  // The next next() starts again at the first row, wherever the cursor stands.
  void restart() { m_started = false; }

  bool onRow() const { return m_row != PastEnd; }
  std::size_t row() const { return m_row; }

private:
  static constexpr std::size_t PastEnd = static_cast<std::size_t>(-1);

  std::size_t m_row = PastEnd;
  bool m_started = false;
};

// Appends a row to the list for each row of the source from its cursor on, which `setRow` then copies; false, with the
// rows so far, when memory is short. `cursor` is the list's own, over so many rows. A list that is its own source copies
// the rows that were there and stops before those that this adds.
template<class List, class Source, class SetRow>
bool copyRows(List& list, Source& source, ListCursor& cursor, std::size_t rows, const SetRow& setRow) {
  const bool isOwnSource = static_cast<Source*>(&list) == &source;
  while (source.next() && !(isOwnSource && cursor.row() >= rows)) {
    if (!list.addRow())
      return false;
    setRow();
  }
  cursor.restart();
  return true;
}
