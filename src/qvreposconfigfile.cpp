#include "qvreposconfigfile.h"

#include "domchildren.h"
#include "identity.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbformat.h"
#include "qvxdom/qvdom.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <new>

namespace {

constexpr const char* definitionElement = "VaultRepositoryInfo";
constexpr std::int64_t maxFileSize = std::int64_t{512} << 20;

// One child element of a definition: the text it is written with and the field it is read into.
struct Element {
  const char* name;
  QvbString (*written)(QvReposConfiguration& definition);
  void (QvReposConfiguration::*read)(const QvbString& text);
};

template<QvbString (QvReposConfiguration::*Getter)()>
QvbString field(QvReposConfiguration& definition) {
  return (definition.*Getter)();
}

QvbString writtenUnifiedName(QvReposConfiguration& definition) {
  const auto name = definition.getUnifiedRepositoryName();
  return name.isEmpty() ? definition.getName() : name;
}

// Kept: DefinitionFormat.WritesTheConnectionTypeAndNotItsText
QvbString writtenType(QvReposConfiguration& definition) {
  return getUnifiedReposConnectTypeName(definition.getUnifiedConnectionType());
}

constexpr Element elements[] = {
    {"VaultPath", field<&QvReposConfiguration::getVaultPath>, &QvReposConfiguration::setVaultPath},
    {"UnifiedRepositoryConnect", field<&QvReposConfiguration::getUnifiedRepositoryConnect>,
     &QvReposConfiguration::setUnifiedRepositoryConnect},
    {"UnifiedRepositoryPrefix", field<&QvReposConfiguration::getUnifiedRepositoryPrefix>,
     &QvReposConfiguration::setUnifiedRepositoryPrefix},
    {"VaultLogFile", field<&QvReposConfiguration::getVaultLogFile>, &QvReposConfiguration::setVaultLogFile},
    {"UnifiedRepositoryName", writtenUnifiedName, &QvReposConfiguration::setUnifiedRepositoryName},
    {"UnifiedRepositoryType", writtenType, &QvReposConfiguration::setUnifiedRepositoryConnectType},
    {"UnifiedRepositoryVersion", field<&QvReposConfiguration::getUnifiedRepositoryVersion>,
     &QvReposConfiguration::setUnifiedRepositoryVersion},
};
static_assert(std::size(elements) == definitionTextCount - 2,
              "every text but the name, an attribute, and the file's name");

void writeDefinition(QvReposConfiguration& definition, QvDomNode root) {
  root.setAttributeValue("Name", definition.getName());
  root.setAttributeValue("RepositoryType", "Vault");
  root.setAttributeValue("IsActive", definition.isActive() ? "true" : "false");
  for (const auto& element : elements)
    root.addChild(element.name).setValue(element.written(definition));
}

// The root itself or the first of its children that is one; a missing node when none is.
QvDomNode findDefinition(const QvDomNode& root) {
  return isNamed(root, definitionElement) ? root : findChildNamed(root, definitionElement);
}

void readElement(const QvDomNode& node, QvReposConfiguration& definition) {
  const auto name = node.getName();
  const auto known = std::find_if(std::begin(elements), std::end(elements), [&](const auto& element) {
    return qvbEqualsIgnoreCase(name.view(), element.name);
  });
  // An element without text is an empty text: null is left to the fields whose element is missing.
  if (known != std::end(elements))
    (definition.*known->read)(QvbString(node.getValue(false).view()));
}

// The connection type text that a file which names none stands for: older files leave it to the connection
// string.
const char* inferredType(const QvbString& connect) {
  QvbString type;
  if (!readDsnType(connect, &type))
    return "File";
  return type.compare("GRVS") == 0 ? "GRVS" : "ODBC";
}

void readDefinition(const QvDomNode& element, const QvDomNode& root, QvReposConfiguration& definition) {
  definition.setName(element.getAttributeValue("Name"));
  definition.setActive(element.getAttributeValue("IsActive").compare("false") != 0);
  // The fields are the root's children even when the definition element is one of them.
  // Kept: DefinitionFormat.ADefinitionOneLevelDownGivesTheAttributesAndTheRootTheElements
  for (auto child = root.getFirstChild(false); !child.null(); child = child.getNextSibling(false))
    readElement(child, definition);
  if (definition.getUnifiedRepositoryConnectType().isNull())
    definition.setUnifiedRepositoryConnectType(inferredType(definition.getUnifiedRepositoryConnect()));
  definition.setUnifiedConnectionType(connectionTypeOf(definition.getUnifiedRepositoryConnectType()));
}

void parseDefinition(const QvbString& xml, DefinitionFile& file) {
  const auto path = file.definition.getFilename();
  QvDom dom;
  if (!dom.loadXML(xml)) {
    if (lackedMemory(dom))
      throw std::bad_alloc();
    file.content = DefinitionFile::Content::Malformed;
    file.reason = qvbStringFormat("%s:%s", path, dom.getErrorMessage());
  } else if (const auto element = findDefinition(dom.getRoot()); element.null()) {
    file.content = DefinitionFile::Content::NoDefinition;
    file.reason = qvbStringFormat("The file \"%s\" is not a valid definition file.", path);
  } else {
    readDefinition(element, dom.getRoot(), file.definition);
    file.content = DefinitionFile::Content::Definition;
  }
}

} // namespace

bool writeConfigurationContents(QvReposConfiguration* definition, const QvbString& path, QvbString* error) {
  QvDom dom;
  // Kept: DefinitionFormat.ADocumentThatCannotBeStartedFailsWithoutAMessage
  if (!dom.startNewDocument(definitionElement))
    return false;
  writeDefinition(*definition, dom.getRoot());
  const bool written = dom.createFile(path, true, dom.getRoot());
  if (!written && error)
    *error = qvbStringFormat("Error opening file %s for writing content.", path);
  return written;
}

DefinitionFile::DefinitionFile(const QvbString& path, QvReposConfigType type) {
  definition.setFilename(path);
  definition.setType(type);
}

DefinitionFilePtr readDefinitionFile(const QvbString& path, QvReposConfigType type) {
  auto file = std::make_shared<DefinitionFile>(path, type);
  QvbString xml;
  if (const int code = np_fio_readAll(path, maxFileSize, &xml))
    file->reason = qvbStringFormat("%s: %s", path, np_fio_errdesc(code));
  else
    parseDefinition(xml, *file);
  return file;
}
