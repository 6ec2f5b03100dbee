// One document made a tree of and forgotten, again and again.
#pragma once

#include "bench.h"
#include "qvxdom/qvdom.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#ifdef QV_WITH_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef QV_WITH_LIBXML2
#include <libxml/parser.h>
#endif

inline bool byLibrary(const std::string& xml) {
  const QvbString text{std::string_view(xml)};
  return QvDom().loadXML(text);
}
#ifdef QV_WITH_PUGIXML
inline bool byPugixml(const std::string& xml) {
  pugi::xml_document tree;
  return static_cast<bool>(tree.load_buffer(xml.data(), xml.size()));
}
#endif
#ifdef QV_WITH_LIBXML2
inline bool byLibxml2(const std::string& xml) {
  const xmlDocPtr tree =
      xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, XML_PARSE_NONET);
  xmlFreeDoc(tree);
  return tree != nullptr;
}
#endif

using Doers = std::vector<std::pair<std::string, std::function<void(Bench&)>>>;

// Those who make a tree of the document so many times; `suffix` goes behind their names.
inline Doers treeMakers(const std::string& xml, int times, const std::string& suffix = "") {
  const auto with = [=](bool (*parse)(const std::string&)) {
    return [=](Bench& bench) {
      bench.measure([&] {
        for (int i = bench.isShort ? times - 1 : 0; i < times; ++i)
          if (!parse(xml))
            throw std::runtime_error("the document is not read");
      });
      bench.result = checksumOf(xml);
    };
  };
  Doers doers{{"library" + suffix, with(byLibrary)}};
#ifdef QV_WITH_LIBXML2
  doers.emplace_back("libxml2" + suffix, with(byLibxml2));
#endif
#ifdef QV_WITH_PUGIXML
  doers.emplace_back("pugixml" + suffix, with(byPugixml));
#endif
  return doers;
}
