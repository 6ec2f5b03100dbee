// The definitions that the files of both folders make.
#pragma once

#include "qvreposconfigcache.h"
#include "qvreposrefusals.h"
#include "qvxbase/qvbthreads.h"
#include "repositoryfolders.h"

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

// The first definition of each name, without regard to case. It is shared by all who loaded it and never changes.
class DefinitionSet {
public:
  DefinitionSet() = default;
  DefinitionSet(std::shared_ptr<const DefinitionFiles> systemFiles,
                std::shared_ptr<const DefinitionFiles> userFiles);

  // Both in load order, the system's before the user's.
  const std::vector<DefinitionFilePtr>& definitions() const { return m_definitions; }
  const std::vector<RefusedFile>& refused() const { return m_refused; }
  // Whether it is what these files make.
  bool isOf(const std::shared_ptr<const DefinitionFiles>& systemFiles,
            const std::shared_ptr<const DefinitionFiles>& userFiles) const {
    return m_systemFiles == systemFiles && m_userFiles == userFiles;
  }
  // Null when there is none of that name.
  DefinitionFilePtr find(const QvbString& name) const;
  // Made when it is asked for first, and then as long as the set.
  const RepositoryTable& repositories() const;

private:
  void add(const DefinitionFilePtr& file);

  std::shared_ptr<const DefinitionFiles> m_systemFiles;
  std::shared_ptr<const DefinitionFiles> m_userFiles;
  std::vector<DefinitionFilePtr> m_definitions;
  std::vector<RefusedFile> m_refused;
  std::unordered_map<QvbString, DefinitionFilePtr, QvbHashIgnoreCase, QvbEqualIgnoreCase> m_byName;
  mutable QvbMutex m_mutex;
  mutable std::optional<RepositoryTable> m_repositories QVB_GUARDED_BY(m_mutex);
};

// What the folders hold now; never null, and the same as before when nothing changed. It may be called from any thread.
// Memory that cannot be had is std::bad_alloc.
std::shared_ptr<const DefinitionSet> loadDefinitions(const DefinitionFolder& systemFolder,
                                                     const DefinitionFolder& userFolder,
                                                     std::int64_t now = secondsNow());
