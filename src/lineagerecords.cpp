#include "lineagerecords.h"

#include <functional>
#include <string_view>

namespace {

// Null and empty differ here. A text that is shared is not looked at.
bool isSameText(const QvbString& a, const QvbString& b) noexcept {
  return a.isNull() == b.isNull() && (a.asCstr() == b.asCstr() || a == b);
}

} // namespace

LineageRecordHold::~LineageRecordHold() {
  if (m_record && --m_record->holders == 0)
    m_record->owner.erase(*m_record);
}

std::size_t LineageRecords::Hash::operator()(const QvResourceImpl& resource) const {
  std::size_t hash = 0;
  for (const QvbString* text :
       {&resource.identity(), &resource.name(), &resource.type(), &resource.location(), &resource.id()})
    hash = hash * 31 + (text->isEmpty() ? 0 : std::hash<std::string_view>()(text->view()));
  const QvbDate& date = resource.analysisDate();
  return date.isNull() ? hash : hash * 31 + std::hash<double>()(date.asDouble());
}

bool LineageRecords::Equal::isSame(const QvResourceImpl& a, const QvResourceImpl& b) noexcept {
  return isSameText(a.identity(), b.identity()) && isSameText(a.type(), b.type()) &&
         isSameText(a.name(), b.name()) && isSameText(a.location(), b.location()) &&
         isSameText(a.id(), b.id()) && a.analysisDate().compare(b.analysisDate()) == 0 &&
         a.isResolved() == b.isResolved() && a.isMacroValue() == b.isMacroValue();
}

LineageRecordHold LineageRecords::hold(const QvResourceImpl& resource) {
  const auto known = m_records.find(resource);
  return LineageRecordHold(known != m_records.end() ? *known : *m_records.emplace(resource, *this).first);
}

void LineageRecords::erase(const LineageRecord& record) noexcept { m_records.erase(m_records.find(record)); }

void LineageRecords::forgetTexts() noexcept {
  for (const LineageRecord& record : m_records)
    record.text = {};
}

bool LineageDependents::contains(const QvbString& identity) {
  const auto identityOf = [this](std::size_t at) { return &m_records[at]->resource.identity(); };
  return m_index.find(identity, m_records.size(), identityOf) < m_records.size();
}
