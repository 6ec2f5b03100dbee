#include "jobfacts.h"
#include "jsonsplit.h"

#include "qvlineagegraph/json.h"

#include "qvreposres/qvsqlstep.h"
#include "qvxdom/qvdom.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <utility>

namespace qvlineagegraph {

namespace fs = std::filesystem;

namespace {

QvbString text(std::string_view bytes) { return QvbString(bytes); }
std::string str(const QvbString& bytes) { return std::string(bytes.view()); }

// Keeps what the walk tells. Identities are those of the resources that the library makes for the same names.
class FactsVisitor final : public QvSQLStepVisitor {
public:
  FactsVisitor(QvResourceManager& manager, QvResourceFactory& factory, JobFacts& facts)
      : m_manager(manager), m_factory(factory), m_facts(facts) {}

  void visitConnection(const QvbString& name, const QvbString& type, const QvbString& connection) override {
    m_dataSource = name.isEmpty() ? std::string_view() : addDataSource(connection, type);
  }

  void visitTableRead(QvSQLTableElement, const QvDataURIComponents& table, const QvbString&) override {
    const std::string_view dataSource = addDataSource(table.dataSource, table.dataSourceType);
    if (!table.table.isEmpty())
      addTable({.access = Access::Read, .dataSource = dataSource}, table.dataSource, table.dataSourceType,
               table.catalog, table.schema, table.table);
  }

  void visitBareTableRead(QvSQLTableElement, const QvbString& table, const QvbString&) override {
    const QvbString none;
    addTable({.access = Access::Read, .isBare = true, .dataSource = m_dataSource}, none, "ODBC", none, none,
             table);
  }

  void visitTableWritten(const QvbString& connection, const QvbString& catalog, const QvbString& schema,
                         const QvbString& table) override {
    addTable({.access = Access::Write, .dataSource = m_dataSource}, connection, QvbString(), catalog, schema,
             table);
  }

  void visitUnusableName(const QvbString& element, const QvbString& name, const QvbString& reason) override {
    m_facts.unusableNames.push_back(str(element) + " \"" + str(name) + "\" " + str(reason));
  }

  void visitUnknownRoot(const QvbString& name) override { m_facts.unknownRoot = str(name); }

private:
  std::string_view shortName(const QvbString& dsn) {
    QvbString name;
    return m_facts.memory.keep((m_manager.generateShortDSN(dsn, &name) ? name : dsn).view());
  }

  std::string_view identityOf(QvResource* made) {
    const Released<QvResource> resource(made);
    if (!resource) // nothing that the walk tells lacks what its identity needs
      throw std::bad_alloc();
    return m_facts.memory.keep(resource->getResourceIdentity().view());
  }

  // Its short name. Many tables in a row are of one data source.
  std::string_view addDataSource(QvbString dsn, QvbString type) {
    if (!m_facts.dataSources.empty() && m_latest.first == dsn && m_latest.second == type)
      return m_facts.dataSources.back().name;
    m_latest = {dsn, type};
    const std::string_view name = shortName(dsn);
    m_facts.dataSources.push_back({name, m_facts.memory.keep(type.view()),
                                   identityOf(m_manager.generateDataSourceResource(&m_factory, dsn, type))});
    return name;
  }

  void addTable(TableFact fact, QvbString dsn, QvbString type, QvbString catalog, QvbString schema,
                QvbString table) {
    fact.catalog = m_facts.memory.keep(catalog.view());
    fact.schema = m_facts.memory.keep(schema.view());
    fact.table = m_facts.memory.keep(table.view());
    fact.identity =
        identityOf(m_manager.generateTableResource(&m_factory, dsn, type, catalog, schema, table));
    m_facts.tables.push_back(fact);
  }

  QvResourceManager& m_manager;
  QvResourceFactory& m_factory;
  JobFacts& m_facts;
  std::string_view m_dataSource;            // of the latest connection
  std::pair<QvbString, QvbString> m_latest; // data source and its type
};

// No XML begins with a brace. A text that is longer than a document may be is for the XML reader to refuse.
bool isSavedGraph(std::string_view text) {
  if (text.starts_with(byteOrderMark))
    text.remove_prefix(byteOrderMark.size());
  const auto first = text.find_first_not_of(" \t\r\n");
  return first != text.npos && text[first] == '{' && text.size() <= QvDom::MaxSize;
}

std::string beginOf(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error))
    return {};
  std::string begin(4096, '\0');
  std::ifstream in(path, std::ios::binary);
  in.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  begin.resize(static_cast<std::size_t>(in.gcount()));
  return begin;
}

void keep(Result<Graph> saved, JobFacts& facts) {
  if (saved)
    facts.saved = std::move(*saved);
  else
    facts.failure = saved.error().message;
}

} // namespace

// Read in blocks that grow with what came; the byte too many tells that it is too large.
std::string streamContent(std::istream& stream) {
  constexpr std::size_t firstBlock = std::size_t{1} << 16, most = QvDom::MaxSize + 1;
  std::string content;
  std::size_t size = 0;
  do {
    content.resize(std::min(most, size + std::max(size, firstBlock)));
    stream.read(content.data() + size, static_cast<std::streamsize>(content.size() - size));
    size += static_cast<std::size_t>(stream.gcount());
  } while (size == content.size() && size < most);
  content.resize(size);
  return content;
}

std::optional<std::string> pipeContent(const std::string& path) {
  std::error_code ignored;
  if (!fs::is_fifo(path, ignored))
    return std::nullopt;
  std::ifstream pipe(path, std::ios::binary);
  return pipe ? std::optional(streamContent(pipe)) : std::nullopt;
}

JobReader::JobReader() : m_lineage(getQvLineageAnalysis()), m_manager(createQvResourceManager()) {
  if (!m_lineage || !m_lineage->getDefaultResourceFactory())
    throw std::bad_alloc();
}

void JobReader::read(const JobFile& file, const std::string& input, JobFacts& facts) {
  if (file.path == "-")
    return readText(file.path, input, facts);
  identify(file.path, facts);
  if (const auto content = pipeContent(file.path))
    return readText(file.path, *content, facts);
  if (facts.kind == "File" && isSavedGraph(beginOf(file.path)))
    return keep(readJsonFile(file.path), facts);
  FactsVisitor visitor(*m_manager, *m_lineage->getDefaultResourceFactory(), facts);
  QvbString error;
  if (!visitSQLStepInFile(text(file.path), &visitor, &error))
    facts.failure = str(error);
}

void JobReader::readText(const std::string& path, const std::string& content, JobFacts& facts) {
  if (isSavedGraph(content)) {
    keep(readJson(content), facts);
    if (!facts.failure.empty())
      facts.failure.insert(0, path + ": ");
    return;
  }
  FactsVisitor visitor(*m_manager, *m_lineage->getDefaultResourceFactory(), facts);
  QvbString error;
  if (!visitSQLStepInString(text(content), &visitor, &error))
    facts.failure = path + ":" + str(error);
}

void JobReader::identify(const std::string& path, JobFacts& facts) {
  QvbString type = "File";
  QvbString filename = text(path);
  const Released<QvResource> job(
      m_manager->generateFileResource(type, m_lineage->getDefaultResourceFactory(), filename));
  if (!job)
    return;
  facts.identity = facts.memory.keep(job->getResourceIdentity().view());
  facts.kind = facts.memory.keep(job->getResourceType().view());
}

} // namespace qvlineagegraph
