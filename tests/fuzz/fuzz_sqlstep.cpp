// Any document as an SQL step: whatever is found has an identity that reads back and stands in the list once.
#include "guards.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvresource.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

void require(bool holds) {
  if (!holds)
    std::abort();
}

class RecordFactory final : public QvResourceFactory {
public:
  void release() override {}
  QvbString getErrorMessage() override { return {}; }
  QvResource* getResource(const QvbString& name, const QvbString& type, const QvbString& identity) override {
    auto* record = new QvResourceImpl;
    record->setName(name);
    record->setType(type);
    record->setResourceIdentity(identity);
    return record;
  }
  QvbString getPluginPath() override { return {}; }
  void registerResourceResolver(QvResourceResolver*) override {}
  QvResourceResolver* getResourceResolver() override { return nullptr; }
  QvResource* getDataResource(QvDataURI*) override { return nullptr; }
};

// Controls and broken UTF-8, which XML cannot carry, come back as U+FFFD.
bool isNameInXml(const QvbString& read, const QvbString& name) {
  return read == name || read.view().find("\xef\xbf\xbd") != std::string_view::npos;
}

bool readsBack(QvResourceManager& manager, QvResource& resource) {
  const auto identity = resource.getResourceIdentity();
  QvbString dsn, dsntype, catalog, schema, table;
  if (resource.getResourceType() == "Table")
    return manager.getTableObjectFromResourceId(identity, &dsn, &dsntype, &catalog, &schema, &table) &&
           isNameInXml(table, resource.getName());
  return resource.getResourceType() == "Database" &&
         manager.getDataSourceObjectFromResourceId(identity, &dsn, &dsntype) && !dsn.isEmpty();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  const Released<QvResourceListImpl> found(new QvResourceListImpl);
  const Released<QvResourceListImpl> seen(new QvResourceListImpl);
  RecordFactory factory;
  manager->addSQLResourcesFromString(QvbString(reinterpret_cast<const char*>(data), size), &factory,
                                     found.get());
  while (found->next()) {
    auto* resource = found->getValue();
    require(readsBack(*manager, *resource));
    require(!seen->contains(resource) && seen->addRow());
    seen->setLastRowElement(0, resource);
  }
  return 0;
}
