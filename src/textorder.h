// Puts items in the order of texts without regard to the case of ASCII letters, as QvbString::compare() orders them. What
// texts have in common at their beginnings is looked at once for all of them, however long it is.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

template<class Item>
class TextOrder {
public:
  // Items whose texts are equal stay side by side, in any order, and `settle` is called with each run of them.
  template<class TextOf, class Settle>
  static void sort(std::span<Item> items, const TextOf& textOf, const Settle& settle) {
    std::vector<Entry> entries;
    entries.reserve(items.size());
    for (const Item& item : items)
      entries.push_back({textOf(item), item});
    if (entries.size() > 1)
      sort(entries);
    std::transform(entries.begin(), entries.end(), items.begin(),
                   [](const Entry& entry) { return entry.item; });
    forEachRun(
        std::span(entries), [](const Entry& a, const Entry& b) { return isSame(a, b); },
        [&](std::span<Entry> run) {
          settle(items.subspan(static_cast<std::size_t>(run.data() - entries.data()), run.size()));
        });
  }

private:
  static constexpr std::size_t WordSize = sizeof(std::uint64_t);

  struct Entry {
    std::string_view text;
    Item item;
    std::uint64_t word = 0; // of the folded text, its first byte the highest
    std::size_t left = 0;   // bytes from there on, as far as they tell a text that ends within the word
  };

  static constexpr unsigned char folded(char character) noexcept {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte | 0x20) : byte;
  }

  static void take(Entry& entry, std::size_t at) noexcept {
    entry.left = std::min(entry.text.size() - std::min(at, entry.text.size()), WordSize + 1);
    entry.word = 0;
    for (std::size_t i = 0; i < WordSize; ++i)
      entry.word = entry.word << 8 | (i < entry.left ? folded(entry.text[at + i]) : 0);
  }

  static bool isSame(const Entry& a, const Entry& b) noexcept {
    return a.text.size() == b.text.size() &&
           std::equal(a.text.begin(), a.text.end(), b.text.begin(),
                      [](char x, char y) { return folded(x) == folded(y); });
  }

  // So many bytes from there on are the same in all, in whole words.
  static std::size_t common(std::span<const Entry> entries, std::size_t at) noexcept {
    auto same = entries.front().text.substr(std::min(at, entries.front().text.size()));
    for (const Entry& entry : entries.subspan(1)) {
      const auto text = entry.text.substr(std::min(at, entry.text.size()));
      const auto [end, other] = std::mismatch(same.begin(), same.end(), text.begin(), text.end());
      same = same.substr(0, static_cast<std::size_t>(end - same.begin()));
    }
    return same.size() / WordSize * WordSize;
  }

  template<class IsSame, class Visit>
  static void forEachRun(std::span<Entry> entries, const IsSame& isSameRun, const Visit& visit) {
    while (!entries.empty()) {
      std::size_t length = 1;
      while (length < entries.size() && isSameRun(entries.front(), entries[length]))
        ++length;
      visit(entries.first(length));
      entries = entries.subspan(length);
    }
  }

  struct Range {
    std::span<Entry> entries;
    std::size_t at; // bytes that are the same in all
  };

  static void sort(std::span<Entry> all) {
    std::vector<Range> pending{{all, 0}};
    while (!pending.empty()) {
      auto [entries, at] = pending.back();
      pending.pop_back();
      at += common(entries, at);
      for (Entry& entry : entries)
        take(entry, at);
      std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.word != b.word ? a.word < b.word : a.left < b.left;
      });
      const auto isSameWord = [](const Entry& a, const Entry& b) {
        return a.word == b.word && a.left == b.left;
      };
      forEachRun(entries, isSameWord, [&, next = at + WordSize](std::span<Entry> run) {
        if (run.size() > 1 && run.front().left > WordSize)
          pending.push_back({run, next});
      });
    }
  }
};
