// The definition manager: what the two definition folders hold, and the saving and deleting of definitions.
#pragma once

#include "guards.h"
#include "qvreposconfigset.h"
#include "qvxbase/qvbresult.h"
#include "qvxlog/qvlog.h"

#include <memory>

class QVREPOSRES_API QvReposConfigManagerImpl final : public QvReposConfigManager {
public:
  // Goes on without a lock when none can be made.
  QvReposConfigManagerImpl();
  QvReposConfigManagerImpl(const QvReposConfigManagerImpl&) = delete;
  QvReposConfigManagerImpl& operator=(const QvReposConfigManagerImpl&) = delete;

  void release() override { delete this; }
  QvbString getErrorMessage() override;
  QvReposConfiguration* getConfigurationByName(const QvbString& name) override;
  QvReposConfigurationList* getConfigurationsByType(QvReposConfigType type) override;
  bool refresh() override;
  QvReposConfigurationList* getConfigurations() override;
  QvReposConfiguration* createConfiguration(const QvbString& name, QvReposConfigType type) override;
  bool configurationExists(const QvbString& name) override;
  bool deleteConfiguration(QvReposConfiguration* definition, QvbString* error) override;
  bool saveConfiguration(QvReposConfiguration* definition, QvbString* error) override;
  bool getDefaultConfiguration(QvbString* name) override;
  QvReposRefusalList* getRefusals() override;
  bool getConfigurationFilename(const QvbString& name, QvReposConfigType type, QvbString* filename) override;

  // The definitions as they are now: a lookup without copies. None of them may be changed.
  QVREPOSRES_HIDDEN std::shared_ptr<const DefinitionSet> loadAnew();

private:
  // Lists the files of both folders.
  QVREPOSRES_HIDDEN void initFileList() QVB_REQUIRES(m_lock);
  // Loads the definitions of the listed files; the first one of a name wins.
  QVREPOSRES_HIDDEN void refreshReposList() QVB_REQUIRES(m_lock);
  // Tells of a file that is not loaded, at every load.
  QVREPOSRES_HIDDEN void reportRefusal(const RefusedFile& refused) QVB_REQUIRES(m_lock);
  template<class Filter>
  QVREPOSRES_HIDDEN QvReposConfigurationList* listWhere(const Filter& isWanted);
  // Makes the last level of the path where it is missing. `error` is required.
  QVREPOSRES_HIDDEN bool createDirectoryIfNotExist(const QvbString& path, QvbString* error);
  // The file that the definition is to be saved in; its folder is made where it is missing.
  QVREPOSRES_HIDDEN QvbResult<QvbString> findTarget(QvReposConfiguration& definition);

  QvbString m_errorMessage QVB_GUARDED_BY(m_lock){""};
  DefinitionFolder m_systemFolder QVB_GUARDED_BY(m_lock){QvReposConfigTypeSystem, {}, {}};
  DefinitionFolder m_userFolder QVB_GUARDED_BY(m_lock){QvReposConfigTypeUser, {}, {}};
  std::shared_ptr<const DefinitionSet>
      m_definitions QVB_GUARDED_BY(m_lock) = std::make_shared<const DefinitionSet>();
  QvLog m_log;
  Lock m_lock;
};
