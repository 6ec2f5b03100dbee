#include "lineagerecords.h"

#include <functional>

namespace {

// Null and empty differ here. A text that is shared is not looked at.
bool isSameText(const QvbString& a, const QvbString& b) noexcept {
  return a.isSharedWith(b) || (a.isNull() == b.isNull() && a == b);
}

bool isSame(const QvResourceImpl& a, const QvResourceImpl& b) noexcept {
  return isSameText(a.identity(), b.identity()) && isSameText(a.type(), b.type()) &&
         isSameText(a.name(), b.name()) && isSameText(a.location(), b.location()) &&
         isSameText(a.id(), b.id()) && a.analysisDate().compare(b.analysisDate()) == 0 &&
         a.isResolved() == b.isResolved() && a.isMacroValue() == b.isMacroValue();
}

std::size_t hashOf(const QvResourceImpl& resource) noexcept {
  std::size_t hash = 0;
  for (const QvbString* text :
       {&resource.identity(), &resource.name(), &resource.type(), &resource.location(), &resource.id()})
    hash = hash * 31 + text->hashIgnoreCase();
  const QvbDate& date = resource.analysisDate();
  return date.isNull() ? hash : hash * 31 + std::hash<double>()(date.asDouble());
}

} // namespace

LineageRecordHold::~LineageRecordHold() {
  if (m_record && --m_record->holders == 0)
    m_record->owner->erase(*m_record);
}

LineageRecordHold LineageRecords::hold(const QvResourceImpl& resource) {
  const auto at = [this](std::size_t position) -> LineageRecord& {
    constexpr std::size_t size = std::tuple_size_v<Block>;
    return (*m_blocks[position / size])[position % size];
  };
  const std::size_t hash = hashOf(resource);
  const std::size_t known =
      m_index.find(hash, [&](std::size_t position) { return isSame(at(position).resource, resource); });
  return LineageRecordHold(known != PositionIndex::None ? at(known) : add(resource, hash));
}

LineageRecord& LineageRecords::add(const QvResourceImpl& resource, std::size_t hash) {
  if (!m_firstUnused)
    addBlock();
  LineageRecord& record = *m_firstUnused;
  m_index.insert(hash, record.position);
  m_firstUnused = record.nextUnused;
  record.hash = hash;
  record.resource.copyFields(resource);
  return record;
}

// The first of them is taken first.
void LineageRecords::addBlock() {
  m_blocks.push_back(std::make_unique<Block>());
  Block& block = *m_blocks.back();
  for (std::size_t i = block.size(); i-- > 0;) {
    block[i].owner = this;
    block[i].position = (m_blocks.size() - 1) * block.size() + i;
    block[i].nextUnused = std::exchange(m_firstUnused, &block[i]);
  }
}

void LineageRecords::erase(LineageRecord& record) noexcept {
  m_index.erase(record.hash, record.position);
  record.resource.copyFields(QvResourceImpl());
  record.text = {};
  record.nextUnused = std::exchange(m_firstUnused, &record);
}

bool LineageDependents::contains(const QvbString& identity) {
  const auto identityOf = [this](std::size_t at) { return &m_records[at]->resource.identity(); };
  return m_index.find(identity, m_records.size(), identityOf) < m_records.size();
}
