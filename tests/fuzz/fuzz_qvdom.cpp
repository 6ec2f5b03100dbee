// Any bytes: what is read must read back as it was from both layouts, and be read alike by both readers.
#include "qvxdom/qvdom.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

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

// Where each character is as wide as in UTF-8, and no other encoding is named.
bool isUtf8(const std::string& document) {
  return document.find('\0') == std::string::npos && document.find("encoding") == std::string::npos;
}

// An instruction of such a name means nothing, and leaves what the reader of plain documents would take to the parser. In
// another encoding it may be no instruction.
void requireBothReadersToAgree(std::string document, const QvbString& read) {
  const bool mustLoad = isUtf8(document);
  document += "<?p:p?>";
  QvDom parsed;
  const bool isLoaded = parsed.loadXML(QvbString(std::string_view(document)));
  require(isLoaded ? parsed.createXML(false, parsed.getRoot()) == read : !mustLoad);
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
  requireBothReadersToAgree({reinterpret_cast<const char*>(data), size}, xml);
  return 0;
}
