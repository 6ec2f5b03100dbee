// Any names: the identities made of them give them back. Any text: what is taken for an identity or a connection string says
// the same when it is made anew.
#include "fuzz.h"
#include "qvreposres/qvresourcemgr.h"
#include "qvxbase/qvbreleased.h"

namespace {

// A connection string stands for the name in it.
QvbString shortOf(QvResourceManager& manager, const QvbString& dsn) {
  QvbString name;
  return manager.getNameFromDSN(dsn, &name) ? name : dsn;
}

void checkTable(QvResourceManager& manager, std::vector<QvbString> f) {
  QvbString identity;
  if (!manager.generateTableDataSourceResourceId(f[0], f[1], f[2], f[3], f[4], &identity))
    return;
  QvbString read[5];
  f[0] = shortOf(manager, f[0]);
  require(manager.getTableObjectFromResourceId(identity, &read[0], &read[1], &read[2], &read[3], &read[4]));
  for (std::size_t i = 0; i < 5; ++i)
    require(isSameInXml(read[i], f[i]) || f[i].isEmpty());
}

void checkDataSource(QvResourceManager& manager, const QvbString& dsn, const QvbString& type) {
  QvbString identity, name, readType;
  if (!manager.generateDataSourceResourceId(dsn, type, &identity))
    return;
  require(manager.getDataSourceObjectFromResourceId(identity, &name, &readType));
  require(isSameInXml(name, shortOf(manager, dsn)) && (isSameInXml(readType, type) || type.isEmpty()));
}

void checkFile(QvResourceManager& manager, const QvbString& file, QvbString name) {
  QvbString identity, readFile, readName;
  if (manager.generateFileResourceId(file, name, &identity))
    require(manager.getFilenameFromResourceId(identity, &readFile, &readName) && isSameInXml(readFile, file));
}

// Of a text that is an identity, what it says makes one that says the same.
void checkReadAgain(QvResourceManager& manager, const QvbString& text) {
  QvbString a[5], b[5], identity;
  if (manager.getTableObjectFromResourceId(text, &a[0], &a[1], &a[2], &a[3], &a[4]) &&
      manager.generateTableDataSourceResourceId(a[0], a[1], a[2], a[3], a[4], &identity)) {
    require(manager.getTableObjectFromResourceId(identity, &b[0], &b[1], &b[2], &b[3], &b[4]));
    for (std::size_t i = 0; i < 5; ++i)
      require(a[i].isEmpty() ? b[i].isEmpty() : b[i] == a[i]);
  }
}

// What a connection string holds stands in it, and the short form is the name.
void checkConnection(QvResourceManager& manager, const QvbString& text) {
  QvbString name, shortName, type;
  const bool isNamed = manager.getNameFromDSN(text, &name);
  require(manager.generateShortDSN(text, &shortName) == isNamed);
  require(!isNamed ||
          (name == shortName && !name.isEmpty() && text.view().find(name.view()) != std::string_view::npos));
  require(!manager.getDSNTypeFromDSN(text, &type) || text.view().find(type.view()) != std::string_view::npos);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Released<QvResourceManager> manager(createQvResourceManager());
  const auto fields = fieldsOf(data, size, 5);
  const QvbString text = textOf(data, size);
  costsAtMost(4096, size, [&] {
    checkTable(*manager, fields);
    checkDataSource(*manager, fields[0], fields[1]);
    checkFile(*manager, fields[0], fields[1]);
    checkReadAgain(*manager, text);
    checkConnection(*manager, text);
  });
  return 0;
}
