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

// Whether the bytes of ASCII mean the same in the document's encoding, whatever it is.
bool isLikeAscii(const std::string& document) {
  const auto first = static_cast<unsigned char>(document.front());
  return document.find('\0') == std::string::npos && (first < 0x40 || first == 0xEF);
}

// An instruction of such a name means nothing, and leaves what the reader of plain documents would take to the parser. In
// another encoding it may be no instruction.
void requireBothReadersToAgree(std::string document, const QvbString& read) {
  const bool mustLoad = isLikeAscii(document);
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
