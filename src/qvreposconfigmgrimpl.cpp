#include "qvreposconfigmgrimpl.h"

#include "allocation.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"

#include <utility>

namespace {

constexpr int newFolderMode = 8;

constexpr const char* notValid = "The definition specified is not valid.";

bool fileExists(const QvbString& path) { return np_fio_stat(path, nullptr) == NP_FIO_OK; }

// Whether both paths lead to one file, as names that differ in case do where the file system folds case.
bool isSameFile(const QvbString& a, const QvbString& b) {
  NpFileStat first{};
  NpFileStat second{};
  return np_fio_stat(a, &first) == NP_FIO_OK && np_fio_stat(b, &second) == NP_FIO_OK &&
         first.device == second.device && first.inode == second.inode;
}

// What a file that cannot be deleted is told of with. Made while there is memory.
const QvbString deletionDenied("Access was denied trying to delete the definition");
const QvbString deletionFailed("There was an error deleting the definition");

bool deleteFile(const QvbString& path, QvbString* error) {
  const int code = np_fio_unlink(path);
  if (code == NP_FIO_OK)
    return true;
  return qvbFailWith(code == NP_FIO_ACCESS ? deletionDenied : deletionFailed, error);
}

// The option that names the folder of the definitions of that type; null for what is no type.
const QvbFolderOption* folderOptionOf(QvReposConfigType type) {
  switch (type) {
  case QvReposConfigTypeSystem:
    return &QvbOptions::SystemDefinitions;
  case QvReposConfigTypeUser:
    return &QvbOptions::UserDefinitions;
  }
  return nullptr;
}

// The folder of the definitions of that type; null or empty when there is none.
QvbString folderOf(QvReposConfigType type) {
  const auto* option = folderOptionOf(type);
  return option ? qvbGetConfigFolder(*option) : QvbString();
}

// The file name is the definition's name as it stands.
QvbString fileIn(const QvbString& folder, const QvbString& name) {
  return qvbConcatPath(folder, qvbStringFormat("%s.%s", name, definitionFileSuffix.data()));
}

// Ends the old file of a definition that is now saved elsewhere. That it cannot be deleted, short memory included, does
// not fail the save.
void deleteOldFile(const QvbString& oldFile, const QvbString& target, QvbString* error) noexcept {
  const bool isEnded = tryAllocate([&] {
    if (oldFile != target && fileExists(oldFile) && !isSameFile(oldFile, target))
      deleteFile(oldFile, error);
  });
  if (!isEnded)
    qvbFailWith(deletionFailed, error);
}

} // namespace

QvReposConfigManagerImpl::QvReposConfigManagerImpl()
    : m_log("QV.Repos.QvReposRes.ReposConfigMgr", "src/qvreposconfigmgrimpl") {
  if (!m_lock)
    m_log.critical("Failed to create repos config file manager lock");
  initFileList();
}

QvbString QvReposConfigManagerImpl::getErrorMessage() {
  const LockGuard guard(m_lock, LockRequest::Reader);
  return m_errorMessage;
}

void QvReposConfigManagerImpl::initFileList() {
  for (auto* folder : {&m_systemFolder, &m_userFolder}) {
    const auto path = folderOf(folder->type);
    *folder = {folder->type, path, listDefinitionFolder(path)};
  }
}

void QvReposConfigManagerImpl::refreshReposList() {
  auto loaded = loadDefinitions(m_systemFolder, m_userFolder);
  for (const auto& refused : loaded->refused())
    reportRefusal(refused);
  m_definitions = std::move(loaded);
}

void QvReposConfigManagerImpl::reportRefusal(const RefusedFile& refused) {
  auto& definition = refused.file->definition;
  if (refused.file->content == DefinitionFile::Content::NoDefinition)
    m_errorMessage = refused.file->reason;
  if (!refused.winner)
    return;
  m_log.lifecycle("A definition named \"%s\" already exists and will not be loaded.", definition.getName());
  m_log.anomaly("The definition file \"%s\" will not be loaded because a definition with that name "
                "already exists.",
                definition.getFilename());
}

std::shared_ptr<const DefinitionSet> QvReposConfigManagerImpl::loadAnew() {
  const LockGuard guard(m_lock, LockRequest::Reader);
  initFileList();
  refreshReposList();
  return m_definitions;
}

bool QvReposConfigManagerImpl::refresh() {
  loadAnew();
  return true;
}

QvReposConfiguration* QvReposConfigManagerImpl::getConfigurationByName(const QvbString& name) {
  const auto found = loadAnew()->find(name);
  return found ? found->definition.copyOf() : nullptr;
}

template<class Filter>
QvReposConfigurationList* QvReposConfigManagerImpl::listWhere(const Filter& isWanted) {
  Released<QvReposConfigurationListImpl> list(new QvReposConfigurationListImpl);
  const auto loaded = loadAnew();
  for (const auto& file : loaded->definitions())
    if (isWanted(file->definition))
      list->append(&file->definition);
  return list.release();
}

QvReposConfigurationList* QvReposConfigManagerImpl::getConfigurationsByType(QvReposConfigType type) {
  return listWhere([&](QvReposConfiguration& definition) { return definition.getType() == type; });
}

QvReposConfigurationList* QvReposConfigManagerImpl::getConfigurations() {
  return listWhere([](QvReposConfiguration&) { return true; });
}

QvReposConfiguration* QvReposConfigManagerImpl::createConfiguration(const QvbString& name,
                                                                    QvReposConfigType type) {
  if (name.isEmpty())
    return nullptr;
  auto* definition = new QvReposConfigurationImpl;
  definition->setName(name);
  definition->setType(type);
  return definition;
}

bool QvReposConfigManagerImpl::configurationExists(const QvbString& name) {
  return Released<QvReposConfiguration>(getConfigurationByName(name)) != nullptr;
}

bool QvReposConfigManagerImpl::getDefaultConfiguration(QvbString* name) {
  name->assign("");
  const LockGuard guard(m_lock, LockRequest::Reader);
  // The files are as they were listed last. Kept: DefinitionManager.TheDefaultComesFromTheFilesListedBefore
  refreshReposList();
  if (m_definitions->definitions().empty())
    return qvbFailWith("No repository definitions were found to load default definition from.",
                       &m_errorMessage);
  *name = m_definitions->definitions().front()->definition.getName();
  return true;
}

QvReposRefusalList* QvReposConfigManagerImpl::getRefusals() {
  Released<QvReposRefusalListImpl> list(new QvReposRefusalListImpl);
  refresh();
  const LockGuard guard(m_lock, LockRequest::Reader);
  for (const auto* folder : {&m_systemFolder, &m_userFolder})
    if (!folder->path.isEmpty() && !folder->files)
      list->addFolder(folder->path, folderOptionOf(folder->type)->key);
  for (const auto& refused : m_definitions->refused())
    list->addFile(refused);
  return list.release();
}

bool QvReposConfigManagerImpl::getConfigurationFilename(const QvbString& name, QvReposConfigType type,
                                                        QvbString* filename) {
  const auto folder = folderOf(type);
  *filename = folder.isEmpty() ? QvbString() : fileIn(folder, name);
  return !folder.isEmpty();
}

bool QvReposConfigManagerImpl::deleteConfiguration(QvReposConfiguration* definition, QvbString* error) {
  if (!definition)
    return qvbFailWith(notValid, error);
  const LockGuard guard(m_lock, LockRequest::Writer);
  const auto file = definition->getFilename();
  if (file.isNull())
    return qvbFailWith("The definition does not have a filename set.", error);
  if (!fileExists(file))
    return qvbFailWith("The definition file did not exist.", error);
  return deleteFile(file, error);
}

bool QvReposConfigManagerImpl::saveConfiguration(QvReposConfiguration* definition, QvbString* error) {
  if (!definition)
    return qvbFailWith(notValid, error);
  const LockGuard guard(m_lock, LockRequest::Writer);
  const auto oldFile = definition->getFilename();
  const auto target = findTarget(*definition);
  if (!target)
    return qvbFailWith(target.failure().text, error);
  // Kept: DefinitionManager.ADefinitionRenamedInCaseAloneReplacesAFileOfThatName
  if (!qvbEqualsIgnoreCase(oldFile.view(), target->view()) && fileExists(*target))
    return qvbFailWith("A definition already exists with that name.", error);
  if (!writeConfigurationContents(definition, *target, error))
    return false;
  definition->setFilename(*target);
  deleteOldFile(oldFile, *target, error);
  return true;
}

QvbResult<QvbString> QvReposConfigManagerImpl::findTarget(QvReposConfiguration& definition) {
  const auto folder = folderOf(definition.getType());
  QvbFailure failure{.text = "A valid filename could not be created to save the definition"};
  if (folder.isEmpty() || !createDirectoryIfNotExist(folder, &failure.text))
    return failure;
  return fileIn(folder, definition.getName());
}

bool QvReposConfigManagerImpl::createDirectoryIfNotExist(const QvbString& path, QvbString* error) {
  const int found = np_fio_stat(path, nullptr);
  if (found == NP_FIO_OK)
    return true;
  if (found != NP_FIO_NOT_FOUND) {
    *error = qvbStringFormat("Error accessing path %s (%d): %s", path, found, np_fio_errdesc(found));
    m_log.error("%s", *error);
    return false;
  }
  if (const int made = np_dir_create(path, newFolderMode)) {
    *error = qvbStringFormat("Error creating directory %s (%d)", path, made);
    m_log.error("%s", *error);
    return false;
  }
  m_log.success("Created repository definition directory %s", path);
  return true;
}

extern "C" QvReposConfigManager* getRepositoryConfigurationManager() { return new QvReposConfigManagerImpl; }
