// The library for C++20: values, ranges and results over the interfaces, which stay what they are.
//
// Texts go in as whatever holds one (Text) and come out as std::string or std::filesystem::path. What can fail for a reason
// gives a Result, whose error tells it: with file, line and column where a file is malformed. Lists are ranges, read once
// from their beginning, whose elements are values of their own. Nothing has to be released, and nothing can be that is not
// the caller's (owned.h). Memory that cannot be had is std::bad_alloc. An object is for one thread at a time, different
// objects for any number of them.
//
// All of it is in this header and needs no library beyond the one whose interfaces it calls; interface() of a class leads
// to those. Folders of job files are for qvlineagegraph/jobfolders.h.
#pragma once

#include "qvreposres/cpptext.h"
#include "qvreposres/owned.h"
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvreposeventmgr.h"
#include "qvreposres/qvreposres.h"
#include "qvreposres/qvresourceuri.h"
#include "qvreposres/qvsqlstep.h"
#include "qvreposres/result.h"
#include "qvxbase/qvbconfig.h"

#include <charconv>
#include <cstddef>
#include <iterator>
#include <new>
#include <optional>
#include <ranges>
#include <stdexcept>
#include <variant>
#include <vector>

namespace qvreposres {

// Why something failed.
struct Error {
  std::string message; // for people, file, line and column included
  // What is malformed or cannot be read; empty where that is no file.
  std::filesystem::path file = {};
  int line = 0;   // from 1; 0 where it is not known
  int column = 0; // from 1; 0 where it is not known
};
// The message.
inline std::ostream& operator<<(std::ostream& out, const Error& error) { return out << error.message; }

// A value, or the error that kept it from being made.
template<class T>
using Result = Expected<T, Error>;

namespace detail {

template<class T>
Owned<T> required(Owned<T> object) {
  if (!object)
    throw std::bad_alloc();
  return object;
}

// The text of an export, or why there is none: memory is what fails without a word.
inline Result<std::string> lineageOr(bool isWritten, const QvbString& text, const QvbString& message) {
  if (isWritten)
    return toString(text);
  if (message.isEmpty())
    throw std::bad_alloc();
  return Error{toString(message)};
}

inline bool takeNumber(std::string_view& text, int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const auto used = static_cast<std::size_t>(end - text.data());
  if (error != std::errc() || used >= text.size() || text[used] != ':')
    return false;
  text.remove_prefix(used + 1);
  return true;
}

// From "<file>:<line>:<column>: <reason>", or "<file>: <reason>".
inline Error fileError(const std::filesystem::path& file, std::string_view message) {
  Error error{std::string(message), file};
  if (message.starts_with(file.native())) {
    message.remove_prefix(file.native().size());
    int line = 0, column = 0;
    if (message.starts_with(':') && (message.remove_prefix(1), takeNumber(message, line)) &&
        takeNumber(message, column))
      error.line = line, error.column = column;
  }
  return error;
}

} // namespace detail

// The start and end of the library; one object, made before threads use the library and ended when they no longer do.
class Library {
public:
  Library() {
    void* reserved = nullptr;
    if (qvReposResStartup(nullptr, &reserved) != 0)
      throw std::bad_alloc();
    if (qvFileCacheStartup(nullptr, &reserved) != 0) {
      qvReposResShutdown();
      throw std::runtime_error("the file cache cannot be made");
    }
  }
  ~Library() {
    qvFileCacheShutdown();
    qvReposResShutdown();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

// An option of the library, for the whole process (docs/options.md).
inline void setOption(const Text& key, const Text& value) { qvbSetConfigOption(key, value); }

// On whose behalf remote files are asked for.
class Subject {
public:
  // The process's own user.
  Subject() : m_subject(qvbSubjectAccess()) {}
  // A user whom a ticket server knows.
  Subject(const Text& user, const Text& credentials) : m_subject(qvbSubjectCreate(user, credentials)) {}
  // For the interfaces; it stays this object's.
  ASSubject* get() const noexcept { return m_subject.get(); }

private:
  ReleasedSubject m_subject;
};

// Lists ------------------------------------------------------------------------------------------------------------

// A thing that a job touches: equal to another one of the same type and identity, without regard to case.
struct Resource {
  std::string name;          // the display name
  std::string type;          // the object type, such as "Table"
  std::string identity;      // what tells it apart from others of its type, see qvresourcemgr.h
  std::string location = {}; // where it lives, as far as that is known
  bool isResolved = false;   // false where nobody could tell what it stands for
  bool hasMacro = false;     // the identity holds one that was not expanded

  friend bool operator==(const Resource& a, const Resource& b) noexcept {
    return qvbEqualsIgnoreCase(a.identity, b.identity) && qvbEqualsIgnoreCase(a.type, b.type);
  }
};
// "Table customers".
inline std::ostream& operator<<(std::ostream& out, const Resource& resource) {
  return out << resource.type << ' ' << resource.name;
}

// A copy: the interface's resource ends when it likes.
inline Resource toResource(QvResource& resource) {
  return {toString(resource.getName()),
          toString(resource.getResourceType()),
          toString(resource.getResourceIdentity()),
          toString(resource.getResourceLocation()),
          resource.IsResolved(),
          resource.IsResourceIdentityMacroValue()};
}

// A definition file that is not loaded.
struct Refusal {
  std::filesystem::path file; // or the folder that cannot be opened
  std::string reason;         // for people
  bool isDuplicate;           // a whole definition, whose name another one took first
};

// A repository's definition, a record of its own: a change counts once Definitions::save() has it.
class Definition {
public:
  // Of a record of the interfaces.
  explicit Definition(Owned<QvReposConfiguration> record) : m_record(detail::required(std::move(record))) {}

  // As the getters of QvReposConfiguration tell them.
  std::string name() const { return toString(m_record->getName()); }
  bool isActive() const { return m_record->isActive(); }
  bool isSystem() const { return m_record->getType() == QvReposConfigTypeSystem; }
  std::filesystem::path vault() const { return toPath(m_record->getVaultPath()); }
  std::filesystem::path logFile() const { return toPath(m_record->getVaultLogFile()); }
  std::string connection() const { return toString(m_record->getUnifiedRepositoryConnect()); }
  QvUnifiedReposConnectType connectionType() const { return m_record->getUnifiedConnectionType(); }
  std::string prefix() const { return toString(m_record->getUnifiedRepositoryPrefix()); }
  // Where it was read from or saved to; empty before that.
  std::filesystem::path file() const { return toPath(m_record->getFilename()); }

  // As the setters of QvReposConfiguration take them; calls can be strung together.
  Definition& setName(const Text& name) { return m_record->setName(name), *this; }
  Definition& setActive(bool active) { return m_record->setActive(active), *this; }
  Definition& setVault(const Text& folder) { return m_record->setVaultPath(folder), *this; }
  Definition& setLogFile(const Text& path) { return m_record->setVaultLogFile(path), *this; }
  Definition& setConnection(QvUnifiedReposConnectType type, const Text& connection = {}) {
    m_record->setUnifiedConnectionType(type);
    m_record->setUnifiedRepositoryConnect(connection);
    return *this;
  }
  Definition& setPrefix(const Text& prefix) { return m_record->setUnifiedRepositoryPrefix(prefix), *this; }

  // For what this class leaves out.
  QvReposConfiguration& interface() const { return *m_record; }

private:
  Owned<QvReposConfiguration> m_record;
};
// The name.
inline std::ostream& operator<<(std::ostream& out, const Definition& definition) {
  return out << definition.name();
}

namespace detail {

// What the row under a list's cursor is as a value.
inline Resource rowOf(QvResourceList& list) { return toResource(*list.getValue()); }
inline std::string rowOf(QvStringList& list) { return toString(list.getValue()); }
inline Definition rowOf(QvReposConfigurationList& list) {
  return Definition(own<&QvReposConfigurationList::getValue>(list));
}
inline Refusal rowOf(QvReposRefusalList& list) {
  return {toPath(list.getFilename()), toString(list.getReason()), list.isDuplicate()};
}
inline std::pair<std::string, std::string> rowOf(QvResourcePropertyList& list) {
  return {toString(list.getKey()), toString(list.getValue())};
}

} // namespace detail

// The rows of a list that the range owns, from the list's cursor on. It is read once: the interfaces have one cursor.
template<class List>
class Rows : public std::ranges::view_base {
public:
  // What the range gives.
  using Row = decltype(detail::rowOf(std::declval<List&>()));

  // An input iterator.
  class Iterator {
  public:
    using iterator_concept = std::input_iterator_tag;
    using value_type = Row;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    // On the row after the list's cursor.
    explicit Iterator(List* list) : m_list(list) { ++*this; }

    Row operator*() const { return detail::rowOf(*m_list); }
    Iterator& operator++() {
      m_isOnRow = m_list->next();
      return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator==(const Iterator& at, std::default_sentinel_t) { return !at.m_isOnRow; }

  private:
    List* m_list = nullptr;
    bool m_isOnRow = false;
  };

  // Of a list that an operation handed over.
  explicit Rows(Owned<List> list) : m_list(detail::required(std::move(list))) {}

  // Call it once.
  Iterator begin() { return Iterator(m_list.get()); }
  // Past the last row.
  std::default_sentinel_t end() const noexcept { return {}; }

private:
  Owned<List> m_list;
};

// Definitions ------------------------------------------------------------------------------------------------------

// The definitions of the folders that the options name.
class Definitions {
public:
  // System definitions before the user's own, each folder in name order.
  Rows<QvReposConfigurationList> all() {
    return Rows(own<&QvReposConfigManager::getConfigurations>(m_manager));
  }
  // Those of one folder.
  Rows<QvReposConfigurationList> ofType(QvReposConfigType type) {
    return Rows(own<&QvReposConfigManager::getConfigurationsByType>(m_manager, type));
  }
  // By name, without regard to case.
  Result<Definition> find(const Text& name) {
    if (auto found = own<&QvReposConfigManager::getConfigurationByName>(m_manager, name))
      return Definition(std::move(found));
    return Error{"there is no repository definition " + std::string(name.view())};
  }
  // Active, and not saved yet.
  Result<Definition> create(const Text& name, QvReposConfigType type = QvReposConfigTypeUser) {
    if (auto made = own<&QvReposConfigManager::createConfiguration>(m_manager, name, type))
      return Definition(std::move(made));
    return Error{"a repository definition needs a name"};
  }
  // A renamed definition replaces its old file. When only that file could not be deleted, the definition is saved
  // nevertheless, and the message tells why the file is still there; it is empty otherwise.
  Result<std::string> save(const Definition& definition) {
    QvbString message;
    if (m_manager->saveConfiguration(&definition.interface(), &message))
      return toString(message);
    return Error{toString(message), definition.file()};
  }
  // Deletes its file.
  Result<void> remove(const Definition& definition) {
    QvbString message;
    if (m_manager->deleteConfiguration(&definition.interface(), &message))
      return {};
    return Error{toString(message), definition.file()};
  }
  // The name of the first one.
  std::optional<std::string> defaultName() {
    QvbString name;
    return m_manager->getDefaultConfiguration(&name) ? std::optional(toString(name)) : std::nullopt;
  }
  // What the folders hold that is not loaded.
  Rows<QvReposRefusalList> refusals() { return Rows(own<&QvReposConfigManager::getRefusals>(m_manager)); }

  // For what this class leaves out.
  QvReposConfigManager& interface() const { return *m_manager; }

private:
  Owned<QvReposConfigManager> m_manager = own<&getRepositoryConfigurationManager>();
};

// Lineage ----------------------------------------------------------------------------------------------------------

// A job file that was read.
struct Job {
  Resource resource;          // the job itself
  std::vector<Resource> uses; // each once, in the order of the file
  std::string unknownRoot;    // the root element of a file that is no SQL step that is known; empty otherwise
};

// Which job uses what.
class Lineage {
public:
  // Reads a job file. A relative path stays what it is: make it absolute where identities should not depend on the folder
  // that the program runs in.
  Result<Job> read(const std::filesystem::path& file) {
    Lists lists(*this);
    return read(file, lists);
  }
  // Reads it, and records what it uses.
  Result<Job> record(const std::filesystem::path& file) {
    Lists lists(*this);
    auto job = read(file, lists);
    lists.job->reset();
    lists.used->reset();
    if (job && lists.job->next())
      m_store->addDependentResources(lists.job->getValue(), lists.used.get());
    return job;
  }
  // The jobs that were recorded, in the order of type and identity.
  Rows<QvResourceList> jobs() { return Rows(own<&QvImpactAnalysis::getAllUniqueUsedResources>(m_store)); }
  // What a job uses directly; nothing for one that is not known.
  Rows<QvResourceList> usedBy(const Resource& job) {
    const auto node =
        detail::required(own<&QvImpactAnalysis::getResource>(m_store, Text(job.type), Text(job.identity)));
    return Rows(own<&QvImpactAnalysis::getDependentResources>(m_store, node.get(), false));
  }
  // All of it as lineage XML, each element on a line of its own or without white space.
  Result<std::string> xml(bool layout = true) {
    QvbString text, message;
    return detail::lineageOr(m_store->getLineageAsString(&text, &message, layout), text, message);
  }
  // The same as JSON, in the form of getLineageAsJson().
  Result<std::string> json() {
    QvbString text, message;
    return detail::lineageOr(getLineageAsJson(m_store.get(), &text, &message), text, message);
  }

  // For what this class leaves out.
  QvImpactAnalysis& interface() const { return *m_store; }

private:
  struct Lists {
    explicit Lists(const Lineage& lineage)
        : job(detail::required(own<&QvImpactAnalysis::createResourceList>(lineage.m_store))),
          used(detail::required(own<&QvImpactAnalysis::createResourceList>(lineage.m_store))) {}
    Owned<QvResourceList> job;
    Owned<QvResourceList> used;
  };

  // Only the root element of what is no step counts, and the reason why a file cannot be read.
  struct RootVisitor final : QvSQLStepVisitor {
    std::string root;
    void visitConnection(const QvbString&, const QvbString&, const QvbString&) override {}
    void visitTableRead(QvSQLTableElement, const QvDataURIComponents&, const QvbString&) override {}
    void visitBareTableRead(QvSQLTableElement, const QvbString&, const QvbString&) override {}
    void visitTableWritten(const QvbString&, const QvbString&, const QvbString&, const QvbString&) override {}
    void visitUnusableName(const QvbString&, const QvbString&, const QvbString&) override {}
    void visitUnknownRoot(const QvbString& name) override { root = toString(name); }
  };

  Result<Job> read(const std::filesystem::path& file, Lists& lists) {
    QvbString path = Text(file);
    QvResourceFactory* factory = m_store->getDefaultResourceFactory();
    const bool isRead = m_manager->addSQLResourcesFromFile(path, factory, lists.used.get());
    Job job;
    while (lists.used->next())
      job.uses.push_back(detail::rowOf(*lists.used));
    if (!isRead || job.uses.empty()) { // the walk tells more of the few that nothing was found in
      RootVisitor visitor;
      QvbString error;
      if (!visitSQLStepInFile(path, &visitor, &error))
        return detail::fileError(file, error.view());
      job.unknownRoot = visitor.root;
    }
    if (!m_manager->addJobFileNode(factory, lists.job.get(), path) || !lists.job->next())
      throw std::bad_alloc();
    job.resource = detail::rowOf(*lists.job);
    return job;
  }

  // Short memory can leave a store without its factory.
  static Owned<QvImpactAnalysis> newStore() {
    auto store = detail::required(own<&getQvLineageAnalysis>());
    if (!store->getDefaultResourceFactory())
      throw std::bad_alloc();
    return store;
  }

  Owned<QvImpactAnalysis> m_store = newStore();
  Owned<QvResourceManager> m_manager = own<&createQvResourceManager>();
};

// Identities -------------------------------------------------------------------------------------------------------

// What the identity of a file is made of (docs/identity.md). In every kind a part that is empty is left out.
struct FileIdentity {
  std::string path;      // required
  std::string name = {}; // else the last part of the path
};
// Of an object of a repository, which needs one of its two identifiers.
struct ObjectIdentity {
  std::string type;      // such as "Rule"
  std::string id;        // in its repository
  std::string uuid = {}; // everywhere
};
// Of a table.
struct TableIdentity {
  std::string dataSource;     // its name, or its connection string
  std::string dataSourceType; // "ODBC" or "GRVS"
  std::string catalog;        // as the database has it, like the schema
  std::string schema;         // as the database has it
  std::string table;          // required
};
// Of a data source.
struct DataSourceIdentity {
  std::string name;      // or its connection string; required
  std::string type = {}; // "ODBC" or "GRVS"
};
// The parts of any of them.
using Identity = std::variant<FileIdentity, ObjectIdentity, TableIdentity, DataSourceIdentity>;

namespace detail {

struct IdentityMaker {
  QvResourceManager& manager;
  QvbString* identity;
  bool operator()(const FileIdentity& file) const {
    QvbString name = Text(file.name);
    return manager.generateFileResourceId(Text(file.path), name, identity);
  }
  bool operator()(const ObjectIdentity& object) const {
    return manager.generateUnifiedObjectResourceId({}, Text(object.type), Text(object.id), Text(object.uuid),
                                                   identity);
  }
  bool operator()(const TableIdentity& table) const {
    return manager.generateTableDataSourceResourceId(Text(table.dataSource), Text(table.dataSourceType),
                                                     Text(table.catalog), Text(table.schema),
                                                     Text(table.table), identity);
  }
  bool operator()(const DataSourceIdentity& source) const {
    return manager.generateDataSourceResourceId(Text(source.name), Text(source.type), identity);
  }
};

} // namespace detail

// The text of an identity; equal texts mean the same thing.
inline Result<std::string> makeIdentity(const Identity& identity) {
  static constexpr const char* missing[] = {
      "a file's identity needs its path", "an object's identity needs its id or uuid",
      "a table's identity needs the table", "a data source's identity needs its name"};
  const auto manager = own<&createQvResourceManager>();
  QvbString text;
  if (std::visit(detail::IdentityMaker{*manager, &text}, identity))
    return toString(text);
  return Error{missing[identity.index()]};
}

// The parts of such a text.
inline Result<Identity> parseIdentity(const Text& identity) {
  const auto manager = own<&createQvResourceManager>();
  QvbString a, b, c, d, e;
  if (manager->getFilenameFromResourceId(identity, &a, &b))
    return Identity(FileIdentity{toString(a), toString(b)});
  if (manager->getUnifiedObjectFromResourceId(identity, &a, &b, &c, &d))
    return Identity(ObjectIdentity{toString(b), toString(c), toString(d)});
  if (manager->getTableObjectFromResourceId(identity, &a, &b, &c, &d, &e))
    return Identity(TableIdentity{toString(a), toString(b), toString(c), toString(d), toString(e)});
  if (manager->getDataSourceObjectFromResourceId(identity, &a, &b))
    return Identity(DataSourceIdentity{toString(a), toString(b)});
  return Error{"not a resource identity: " + std::string(identity.view())};
}

// Files and events -------------------------------------------------------------------------------------------------

// The URI reference of a file: that of its repository where a definition has its folder, else its file URI.
inline Result<std::string> uriOfFile(const std::filesystem::path& file) {
  QvbString uri;
  if (generateURIReferenceFromFilename(Text(file), &uri))
    return toString(uri);
  return Error{file.empty() ? "a file name must not be empty" : file.string() + ": a repository's own folder",
               file};
}

// The file that a URI reference names, a local copy where it is remote; in the repository of this name, if one is given.
inline Result<std::filesystem::path> fileOfUri(const Text& uri, const Text& repository = {},
                                               const Subject& subject = {}) {
  QvbString file, message;
  if (repository.view().empty()
          ? generateFilenameFromURIReference(subject.get(), uri, &file)
          : generateFilenameFromURIandRepository(subject.get(), uri, repository, &file, nullptr, &message))
    return toPath(file);
  return Error{message.isEmpty() ? "no file name can be made of " + std::string(uri.view())
                                 : toString(message)};
}

// A local copy of a remote file, which lasts until the cache ends; it is the cache's, to be read alone.
inline Result<std::filesystem::path> localCopy(const Text& uri, const Subject& subject = {}) {
  QvbString file, message;
  FileAccessCache* cache = getFileCache();
  if (!cache)
    throw std::bad_alloc();
  const int failed = cache->getCacheFilename(subject.get(), uri, &file, &message);
  std::error_code ignored;
  if (failed == 0 && std::filesystem::exists(toPath(file), ignored))
    return toPath(file);
  if (failed == 0)
    message = "its copy could not be written";
  else if (message.isEmpty())
    getMissingCopyReason(uri, failed, &message);
  return Error{std::string(uri.view()) + ": " + toString(message)};
}

// Has a listener told of changes to repository objects for as long as it lives. The listener must live longer.
class Subscription {
public:
  // Of a listener that stays the caller's.
  explicit Subscription(RepositoryObjectChange& listener) : m_listener(listener) {
    if (!getRepositoryEventManager()->addRepositoryObjectChangeListener(&listener))
      throw std::bad_alloc();
  }
  ~Subscription() { getRepositoryEventManager()->removeRepositoryObjectChangeListener(&m_listener); }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

private:
  RepositoryObjectChange& m_listener;
};

} // namespace qvreposres

// The word for it: "created".
inline std::ostream& operator<<(std::ostream& out, RepositoryObjectChangeType type) {
  QvbString word;
  getRepositoryEventChangeTypeString(type, &word);
  return out << word;
}

namespace std {
template<>
struct hash<qvreposres::Resource> {
  std::size_t operator()(const qvreposres::Resource& resource) const noexcept {
    return qvbHashIgnoreCase(resource.identity) * 31 + qvbHashIgnoreCase(resource.type);
  }
};
} // namespace std

#ifdef FMT_VERSION
template<>
struct fmt::formatter<qvreposres::Error> : fmt::formatter<std::string_view> {
  template<class Context>
  auto format(const qvreposres::Error& error, Context& context) const {
    return fmt::formatter<std::string_view>::format(error.message, context);
  }
};
template<>
struct fmt::formatter<qvreposres::Resource> : fmt::formatter<std::string_view> {
  template<class Context>
  auto format(const qvreposres::Resource& resource, Context& context) const {
    return fmt::formatter<std::string_view>::format(resource.type + " " + resource.name, context);
  }
};
#endif
