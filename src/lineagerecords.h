// What the lineage store keeps of resources: each one that differs in anything once, however many depend on it.
#pragma once

#include "qvresource.h"

#include <cstddef>
#include <unordered_set>
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
  LineageRecord(const QvResourceImpl& source, LineageRecords& keeper) : owner(keeper) {
    resource.copyFields(source);
  }

  // Asked through an interface that knows no const; nobody changes it.
  mutable QvResourceImpl resource;
  LineageRecords& owner;
  mutable std::size_t holders = 0;
  mutable LineageText text; // while an export goes on
};

// Holds a record, which ends with its last holder.
class LineageRecordHold {
public:
  LineageRecordHold() noexcept = default;
  explicit LineageRecordHold(const LineageRecord& record) noexcept : m_record(&record) { ++record.holders; }
  LineageRecordHold(LineageRecordHold&& other) noexcept : m_record(std::exchange(other.m_record, nullptr)) {}
  LineageRecordHold& operator=(LineageRecordHold other) noexcept {
    std::swap(m_record, other.m_record);
    return *this;
  }
  ~LineageRecordHold();

  explicit operator bool() const noexcept { return m_record; }
  const LineageRecord& operator*() const noexcept { return *m_record; }
  const LineageRecord* operator->() const noexcept { return m_record; }

private:
  const LineageRecord* m_record = nullptr;
};

class LineageRecords {
public:
  LineageRecords() = default;
  LineageRecords(const LineageRecords&) = delete;
  LineageRecords& operator=(const LineageRecords&) = delete;

  LineageRecordHold hold(const QvResourceImpl& resource);
  void erase(const LineageRecord& record) noexcept;
  // What was written of the records may be otherwise the next time.
  void forgetTexts() noexcept;

private:
  // Neither is declared noexcept for the reason that QvbHashIgnoreCase gives.
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const QvResourceImpl& resource) const;
    std::size_t operator()(const LineageRecord& record) const { return (*this)(record.resource); }
  };
  struct Equal {
    using is_transparent = void;
    static const QvResourceImpl& resource(const QvResourceImpl& resource) { return resource; }
    static const QvResourceImpl& resource(const LineageRecord& record) { return record.resource; }
    bool operator()(const auto& a, const auto& b) const { return isSame(resource(a), resource(b)); }
    static bool isSame(const QvResourceImpl& a, const QvResourceImpl& b) noexcept;
  };

  std::unordered_set<LineageRecord, Hash, Equal> m_records;
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
