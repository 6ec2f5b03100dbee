// Finds what is kept elsewhere, in a list or a table of records, by its hash.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>

// Positions by the hash of what is there, in open addressing: eight bytes for each, and no memory before the first. What
// stands at a position, and whether it is what is looked for, the caller knows.
class PositionIndex {
public:
  static constexpr std::size_t None = std::numeric_limits<std::uint32_t>::max();

  // The position with this hash that `isSame` takes; `None` without one.
  template<class IsSame>
  std::size_t find(std::size_t hash, const IsSame& isSame) const {
    if (m_used > 0)
      for (std::size_t at = home(hash); !m_slots[at].isFree(); at = next(at))
        if (m_slots[at].hash == shortOf(hash) && isSame(std::size_t{m_slots[at].position}))
          return m_slots[at].position;
    return None;
  }

  // Memory that cannot be had, also for a position that is no 32-bit number, is std::bad_alloc.
  void insert(std::size_t hash, std::size_t position) {
    if (position >= None)
      throw std::bad_alloc();
    if (m_used >= m_size / 4 * 3)
      grow();
    place({shortOf(hash), static_cast<std::uint32_t>(position)});
    ++m_used;
  }

  // Of a position that was inserted with this hash.
  void erase(std::size_t hash, std::size_t position) noexcept {
    std::size_t hole = home(hash);
    while (m_slots[hole].position != position)
      hole = next(hole);
    // What was put off because the place was taken moves up.
    for (std::size_t at = next(hole); !m_slots[at].isFree(); at = next(at)) {
      if (distance(home(m_slots[at].hash), at) < distance(hole, at))
        continue;
      m_slots[hole] = m_slots[at];
      hole = at;
    }
    m_slots[hole] = {};
    --m_used;
  }

private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t position = None;
    bool isFree() const noexcept { return position == None; }
  };

  static constexpr std::size_t Smallest = 16;

  static std::uint32_t shortOf(std::size_t hash) noexcept { return static_cast<std::uint32_t>(hash); }
  std::size_t home(std::size_t hash) const noexcept { return shortOf(hash) & (m_size - 1); }
  std::size_t next(std::size_t at) const noexcept { return (at + 1) & (m_size - 1); }
  std::size_t distance(std::size_t from, std::size_t to) const noexcept { return (to - from) & (m_size - 1); }

  void place(Slot slot) noexcept {
    std::size_t at = home(slot.hash);
    while (!m_slots[at].isFree())
      at = next(at);
    m_slots[at] = slot;
  }

  void grow() {
    const std::size_t size = m_size == 0 ? Smallest : m_size * 2;
    const auto old = std::exchange(m_slots, std::make_unique<Slot[]>(size));
    const std::size_t oldSize = std::exchange(m_size, size);
    for (std::size_t at = 0; at < oldSize; ++at)
      if (!old[at].isFree())
        place(old[at]);
  }

  std::unique_ptr<Slot[]> m_slots;
  std::size_t m_size = 0; // a power of two
  std::size_t m_used = 0;
};
