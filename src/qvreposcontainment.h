// What contains what: a graph that never has a circle, checked as it grows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// One member of the graph, whose contents and containers are members, too.
//
// Members stand on levels, and none on a lower level than one that contains it. Most additions are told by the levels
// alone, or by a search that ends at once: for a leaf, or for a new top. Otherwise the containers of the one member and
// the contents of the other one are searched in turns, until one side is exhausted, or the containers on one level are
// too many: then all that is added goes to the next level. A level takes the more additions to fill the higher it is, so
// that a graph of m containments costs at most m * sqrt(m) steps to build, whatever its shape and the order of
// additions; trees, chains, stars and what grows at the top or at the bottom cost m. Only a refusal is not covered: it
// costs what it takes to find the circle.
class ContainmentNode {
public:
  ContainmentNode() = default;
  ~ContainmentNode() { clear(); }
  ContainmentNode(const ContainmentNode&) = delete;
  ContainmentNode& operator=(const ContainmentNode&) = delete;

  // False, with nothing changed, when that would close a circle.
  bool add(ContainmentNode& content);
  void removeLast() noexcept;
  void clear() noexcept;
  bool isContained() const noexcept { return m_containers != 0; }

  // How many members a walk meets that goes into each one wherever it is contained, this one included; of more than the
  // limit, some number above it.
  std::size_t places(std::size_t limit) const;

  // Containments that this thread has looked at in all its searches.
  static std::uint64_t stepsSoFar() noexcept;

private:
  // A containment. The ones between members of one level are linked, so that the contained one finds them.
  struct Link {
    Link(ContainmentNode* container, ContainmentNode* content) noexcept : above(container), below(content) {}
    Link(Link&& other) noexcept;
    Link& operator=(Link&&) = delete;
    ~Link() { unlink(); }

    bool isLinked() const noexcept { return below && (previous || below->m_firstLink == this); }
    void link() noexcept;
    void unlink() noexcept;

    ContainmentNode* above;
    ContainmentNode* below;
    Link* previous = nullptr;
    Link* next = nullptr;
  };
  enum class Direction : std::uint8_t { None, Up, Down };
  class Walk;
  class WalkUp;
  class WalkDown;

  bool putBelow(ContainmentNode& content) noexcept;
  std::optional<std::size_t> levelBelow(ContainmentNode& content, WalkUp& up) const noexcept;
  static bool raise(ContainmentNode& content, std::size_t level, const Walk& forbidden) noexcept;

  std::vector<Link> m_contents;
  Link* m_firstLink = nullptr;
  std::size_t m_containers = 0;
  std::size_t m_level = 0;
  // The walk under way that has met this member, and the member that it met next.
  Direction m_metBy = Direction::None;
  ContainmentNode* m_metNext = nullptr;
};
