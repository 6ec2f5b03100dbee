// Any text: what parses must read back as it was, and normalising must come to rest.
#include "qvxbase/qvuri.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

struct Release {
  void operator()(QvURI* uri) const { uri->release(); }
};
using Uri = std::unique_ptr<QvURI, Release>;

void require(bool holds) {
  if (!holds)
    std::abort();
}

Uri reparse(const QvbString& text) {
  Uri uri(getURIFromURIString(text));
  require(uri != nullptr);
  return uri;
}

void checkTextForm(QvURI& uri) {
  const Uri again = reparse(uri.asString());
  require(again->asString() == uri.asString());
  require(again->getScheme() == uri.getScheme());
  require(again->getAuthority() == uri.getAuthority());
  require(again->getPath() == uri.getPath());
}

void checkNormalForm(QvURI& uri) {
  const QvbString normal = uri.getNormalizedString();
  require(reparse(normal)->getNormalizedString() == normal);
}

void checkNativePath(QvURI& uri) {
  QvbString path;
  QvbString again;
  if (getNativePath(&uri, &path)) {
    const Uri built(getURI("file", "", path));
    require(getNativePath(reparse(built->asString()).get(), &again) && again == path);
  }
}

void checkDataComponents(const QvbString& text) {
  QvDataURIComponents c;
  if (!getDataURIComponentsFromString(text, &c) || c.dataSource.isEmpty())
    return;
  const Uri built(getDataURIFromComponents(c.scheme, c.server, c.dataSource, c.dataSourceType, c.catalog,
                                           c.schema, c.table, c.column));
  QvDataURIComponents again;
  require(getDataURIComponentsFromString(built->asString(), &again));
  require(again.server == c.server && again.dataSource == c.dataSource && again.table == c.table &&
          again.dataSourceType == c.dataSourceType && again.catalog == c.catalog &&
          again.schema == c.schema && again.column == c.column && again.scheme == c.scheme);
}

void checkParameter(QvURI& uri, const QvbString& value) {
  require(uri.setParameter("type", value));
  require(uri.getParameter("type") == value);
  checkTextForm(uri);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString text(reinterpret_cast<const char*>(data), size);
  if (const Uri uri{getURIFromURIString(text)}) {
    checkTextForm(*uri);
    checkNormalForm(*uri);
    checkNativePath(*uri);
    checkDataComponents(text);
    checkParameter(*uri, text);
  }
  return 0;
}
