// Where the texts of a graph lie: in large blocks that never move, so that filling the pool copies nothing again.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

// A text is known by its place, which counts bytes from the first block; places of different blocks are apart by whole
// blocks, and a text that is longer than a block has as many of them as it needs.
class TextPool {
public:
  std::string_view at(std::uint32_t place, std::uint32_t size) const noexcept {
    return size == 0 ? std::string_view()
                     : std::string_view(m_starts[place >> BlockBits] + (place & (BlockSize - 1)), size);
  }

  // The place of a copy of the text; std::bad_alloc beyond 4 GiB of texts.
  std::uint32_t add(std::string_view text) {
    if (text.empty())
      return 0;
    if (m_left < text.size())
      addBlocks((text.size() + BlockSize - 1) >> BlockBits);
    std::memcpy(m_next, text.data(), text.size());
    const std::size_t place = (m_starts.size() << BlockBits) - m_left;
    m_next += text.size();
    m_left -= text.size();
    return static_cast<std::uint32_t>(place);
  }

private:
  static constexpr std::size_t BlockBits = 18;
  static constexpr std::size_t BlockSize = std::size_t{1} << BlockBits;
  static constexpr std::size_t MostBlocks = std::size_t{1} << (32 - BlockBits);

  void addBlocks(std::size_t count) {
    if (m_starts.size() + count > MostBlocks)
      throw std::bad_alloc();
    m_starts.reserve(std::max(m_starts.size() + count, 2 * m_starts.size()));
    m_blocks.push_back(std::make_unique_for_overwrite<char[]>(count << BlockBits));
    m_next = m_blocks.back().get();
    m_left = count << BlockBits;
    for (std::size_t i = 0; i < count; ++i)
      m_starts.push_back(m_next + (i << BlockBits));
  }

  std::vector<std::unique_ptr<char[]>> m_blocks;
  std::vector<const char*> m_starts; // of each block
  char* m_next = nullptr;
  std::size_t m_left = 0;
};

} // namespace qvlineagegraph
