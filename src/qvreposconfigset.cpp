#include "qvreposconfigset.h"

#include "qvxbase/qvbunload.h"

#include <utility>

namespace {

// What was loaded last, while the process keeps its files.
struct LastSet {
  QvbMutex mutex;
  std::shared_ptr<const DefinitionSet> set QVB_GUARDED_BY(mutex);
};

LastSet& lastSet() {
  static LastSet& last = qvbUntilUnload<LastSet>();
  return last;
}

} // namespace

DefinitionSet::DefinitionSet(std::shared_ptr<const DefinitionFiles> systemFiles,
                             std::shared_ptr<const DefinitionFiles> userFiles)
    : m_systemFiles(std::move(systemFiles)), m_userFiles(std::move(userFiles)) {
  for (const auto& files : {m_systemFiles, m_userFiles})
    for (const auto& file : files->all)
      add(file);
}

void DefinitionSet::add(const DefinitionFilePtr& file) {
  if (file->content != DefinitionFile::Content::Definition) {
    m_refused.push_back({file, nullptr});
    return;
  }
  const auto [first, isFirst] = m_byName.try_emplace(file->definition.getName(), file);
  if (isFirst)
    m_definitions.push_back(file);
  else
    m_refused.push_back({file, first->second});
}

DefinitionFilePtr DefinitionSet::find(const QvbString& name) const {
  const auto found = m_byName.find(name);
  return found == m_byName.end() ? nullptr : found->second;
}

const RepositoryTable& DefinitionSet::repositories() const {
  const QvbMutexGuard guard(m_mutex);
  return m_repositories ? *m_repositories : m_repositories.emplace(*this);
}

std::shared_ptr<const DefinitionSet> loadDefinitions(const DefinitionFolder& systemFolder,
                                                     const DefinitionFolder& userFolder, std::int64_t now) {
  auto systemFiles = readDefinitionFolder(systemFolder, now);
  auto userFiles = readDefinitionFolder(userFolder, now);
  auto& last = lastSet();
  {
    const QvbMutexGuard guard(last.mutex);
    if (last.set && last.set->isOf(systemFiles, userFiles))
      return last.set;
  }
  const bool areKept = systemFiles->areKept && userFiles->areKept;
  auto made = std::make_shared<const DefinitionSet>(std::move(systemFiles), std::move(userFiles));
  const QvbMutexGuard guard(last.mutex);
  last.set = areKept ? made : nullptr;
  return made;
}
