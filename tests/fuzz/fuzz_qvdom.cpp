// Any bytes: what is read must read back as it was from both layouts.
#include "qvxdom/qvdom.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void require(bool holds) {
  if (!holds)
    std::abort();
}

QvDom reread(const QvDom& dom, bool layout) {
  QvDom again;
  require(again.loadXML(dom.createXML(layout, dom.getRoot())));
  return again;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QvDom dom;
  const bool read = dom.loadXML(QvbString(reinterpret_cast<const char*>(data), size));
  require(read == !dom.getRoot().null() && read == dom.getErrorMessage().isNull());
  if (!read)
    return 0;
  const auto xml = dom.createXML(false, dom.getRoot());
  for (const bool layout : {false, true}) {
    const auto again = reread(dom, layout);
    require(again.createXML(false, again.getRoot()) == xml);
  }
  return 0;
}
