// What the lineage store keeps of resources: each one that differs in anything once, however many depend on it.
#pragma once

#include "qvresource.h"

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

class LineageRecords;

// How a resource reads in lineage XML, wherever it occurs.
struct LineageText {
  QvbString
      tag; // the start of its element, up to its attributes; null for a resource that was not written yet
  QvbString dataPath; // escaped; null without one
};

// The fields that a row of a list keeps.
struct LineageRecord {
  QvResourceImpl resource;
  LineageText text; // while an export goes on
  LineageRecords* owner = nullptr;
  LineageRecord* nextUnused = nullptr;
  std::size_t position = 0; // among the owner's
  std::size_t hash = 0;
  std::size_t holders = 0;
};

// Holds a record, which ends with its last holder.
class LineageRecordHold {
public:
  LineageRecordHold() noexcept = default;
  explicit LineageRecordHold(LineageRecord& record) noexcept : m_record(&record) { ++record.holders; }
  LineageRecordHold(LineageRecordHold&& other) noexcept : m_record(std::exchange(other.m_record, nullptr)) {}
  LineageRecordHold& operator=(LineageRecordHold other) noexcept {
    std::swap(m_record, other.m_record);
    return *this;
  }
  ~LineageRecordHold();

  explicit operator bool() const noexcept { return m_record; }
  LineageRecord& operator*() const noexcept { return *m_record; }
  LineageRecord* operator->() const noexcept { return m_record; }

private:
  LineageRecord* m_record = nullptr;
};

class LineageRecords {
public:
  LineageRecords() = default;
  LineageRecords(const LineageRecords&) = delete;
  LineageRecords& operator=(const LineageRecords&) = delete;

  LineageRecordHold hold(const QvResourceImpl& resource);
  void erase(LineageRecord& record) noexcept;

  // Visits those that are held, in no order that counts.
  template<class Visit>
  void forEach(const Visit& visit) {
    for (const auto& block : m_blocks)
      for (LineageRecord& record : *block)
        if (record.holders > 0)
          visit(record);
  }

private:
  using Block = std::array<LineageRecord, 16>;

  LineageRecord& add(const QvResourceImpl& resource, std::size_t hash);
  void addBlock();

  std::vector<std::unique_ptr<Block>> m_blocks;
  LineageRecord* m_firstUnused = nullptr;
  PositionIndex m_index;
};

// What a resource depends on, in the order in which it came; of resources of one identity the first.
class LineageDependents {
public:
  bool contains(const QvbString& identity);
  void append(LineageRecordHold record) { m_records.push_back(std::move(record)); }
  const std::vector<LineageRecordHold>& records() const noexcept { return m_records; }

private:
  std::vector<LineageRecordHold> m_records;
  RowIndex m_index; // by identity
};
