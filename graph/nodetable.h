// Finds nodes by a hash of what they are known by: one array, in which a node that finds its place taken stands in the
// next free one.
#pragma once

#include "qvlineagegraph/graph.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvlineagegraph {

class NodeTable {
public:
  // The node of this hash that `isIt`, or noNode.
  template<class Predicate>
  NodeIndex find(std::size_t hash, const Predicate& isIt) const {
    if (m_slots.empty())
      return noNode;
    const auto shortHash = static_cast<std::uint32_t>(hash);
    for (std::size_t at = shortHash & mask(); m_slots[at].node != noNode; at = (at + 1) & mask())
      if (m_slots[at].hash == shortHash && isIt(m_slots[at].node))
        return m_slots[at].node;
    return noNode;
  }

  // Of a node that is not there yet.
  void insert(std::size_t hash, NodeIndex node) {
    if (3 * (m_count + 1) > 2 * m_slots.size())
      grow();
    place({static_cast<std::uint32_t>(hash), node});
    ++m_count;
  }

private:
  struct Slot {
    std::uint32_t hash = 0;
    NodeIndex node = noNode;
  };

  std::size_t mask() const { return m_slots.size() - 1; }

  void place(Slot slot) {
    std::size_t at = slot.hash & mask();
    while (m_slots[at].node != noNode)
      at = (at + 1) & mask();
    m_slots[at] = slot;
  }

  void grow() {
    std::vector<Slot> former(std::max<std::size_t>(64, 2 * m_slots.size()));
    former.swap(m_slots);
    for (const Slot& slot : former)
      if (slot.node != noNode)
        place(slot);
  }

  std::vector<Slot> m_slots; // a power of two
  std::size_t m_count = 0;
};

} // namespace qvlineagegraph
