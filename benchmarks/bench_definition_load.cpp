// The first look at folders with a thousand definitions each.
#include "bench.h"
#include "definitionfolder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>

#ifdef QV_WITH_LIBXML2
#include <libxml/parser.h>
#include <libxml/tree.h>
#endif
#ifdef QV_WITH_PUGIXML
#include <pugixml.hpp>
#endif

namespace {

// What a file tells: the definition's name, its vault, the version and what lies between.
using Fields = std::array<std::string, 8>;

class Folders {
public:
  explicit Folders(const Bench& bench) {
    for (int i = 0; i < (bench.isShort ? 1 : 10); ++i)
      all.emplace_back(bench.isShort ? 20 : 1'000);
  }

  std::deque<DefinitionFolder> all;
};

// All of them in the order of their names, so that everybody has the same result.
void setResult(Bench& bench, std::vector<Fields> definitions) {
  std::ranges::sort(definitions);
  std::string all;
  for (const auto& fields : definitions)
    for (const auto& field : fields)
      all += field + "\n";
  bench.result = checksumOf(all);
}

void byLibrary(Bench& bench) {
  const Folders folders(bench);
  std::vector<Released<QvReposConfigurationList>> lists;
  bench.measure([&] {
    for (const auto& folder : folders.all) {
      folder.choose();
      const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
      lists.emplace_back(manager->getConfigurations());
    }
  });
  std::vector<Fields> definitions;
  for (const auto& list : lists)
    while (list->next()) {
      const Released<QvReposConfiguration> definition(list->getValue());
      definitions.push_back({definition->getName().asCstr(), definition->getVaultPath().asCstr(),
                             definition->getUnifiedRepositoryConnect().asCstr(),
                             definition->getUnifiedRepositoryPrefix().asCstr(),
                             definition->getVaultLogFile().asCstr(),
                             definition->getUnifiedRepositoryName().asCstr(),
                             definition->getUnifiedRepositoryConnectType().asCstr(),
                             definition->getUnifiedRepositoryVersion().asCstr()});
    }
  setResult(bench, std::move(definitions));
}

#if defined(QV_WITH_LIBXML2) || defined(QV_WITH_PUGIXML)

template<typename Read>
void readFiles(Bench& bench, const Read& read) {
  const Folders folders(bench);
  std::vector<Fields> definitions;
  bench.measure([&] {
    for (const auto& folder : folders.all)
      for (const auto& entry : std::filesystem::directory_iterator(folder.path))
        definitions.push_back(read(entry.path().c_str()));
  });
  setResult(bench, std::move(definitions));
}

// The place of an element's text among the fields; 0 for an element that is none of theirs.
std::size_t placeOf(const char* name) {
  static constexpr const char* elements[] = {"VaultPath",
                                             "UnifiedRepositoryConnect",
                                             "UnifiedRepositoryPrefix",
                                             "VaultLogFile",
                                             "UnifiedRepositoryName",
                                             "UnifiedRepositoryType",
                                             "UnifiedRepositoryVersion"};
  for (std::size_t i = 0; i < std::size(elements); ++i)
    if (std::strcmp(elements[i], name) == 0)
      return i + 1;
  return 0;
}

#endif

#ifdef QV_WITH_LIBXML2

const char* textOf(const xmlChar* text) { return text ? reinterpret_cast<const char*>(text) : ""; }

void byLibxml2(Bench& bench) {
  readFiles(bench, [](const char* path) {
    Fields fields;
    xmlDoc* const document = xmlReadFile(path, nullptr, XML_PARSE_NONET);
    const xmlNode* const root = document ? xmlDocGetRootElement(document) : nullptr;
    if (!root)
      throw std::runtime_error(path);
    for (const xmlAttr* attribute = root->properties; attribute; attribute = attribute->next)
      if (std::strcmp(textOf(attribute->name), "Name") == 0 && attribute->children)
        fields[0] = textOf(attribute->children->content);
    for (const xmlNode* child = root->children; child; child = child->next)
      if (child->type == XML_ELEMENT_NODE && child->children)
        if (const std::size_t place = placeOf(textOf(child->name)))
          fields[place] = textOf(child->children->content);
    xmlFreeDoc(document);
    return fields;
  });
}

#endif

#ifdef QV_WITH_PUGIXML

void byPugixml(Bench& bench) {
  readFiles(bench, [](const char* path) {
    Fields fields;
    pugi::xml_document document;
    if (!document.load_file(path))
      throw std::runtime_error(path);
    const pugi::xml_node root = document.first_child();
    fields[0] = root.attribute("Name").value();
    for (const pugi::xml_node child : root.children())
      if (const std::size_t place = placeOf(child.name()))
        fields[place] = child.child_value();
    return fields;
  });
}

#endif

} // namespace

int main(int count, char** words) {
  return bench(count, words,
               {
                   {"library", byLibrary},
#ifdef QV_WITH_LIBXML2
                   {"libxml2", byLibxml2},
#endif
#ifdef QV_WITH_PUGIXML
                   {"pugixml", byPugixml},
#endif
               });
}
