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

const Element* findElement(std::string_view name) {
  const auto known = std::find_if(std::begin(elements), std::end(elements), [&](const auto& element) {
    return qvbEqualsIgnoreCase(name, element.name);
  });
  return known == std::end(elements) ? nullptr : known;
}

// An element without text is an empty text: null is left to the fields whose element is missing.
void readElement(const Element& element, std::string_view text, QvReposConfiguration& definition) {
  (definition.*element.read)(QvbString(text));
}

// The connection type text that a file which names none stands for: older files leave it to the connection
// string.
const char* inferredType(const QvbString& connect) {
  QvbString type;
  if (!readDsnType(connect, &type))
    return "File";
  return type.compare("GRVS") == 0 ? "GRVS" : "ODBC";
}

// What follows from the attributes and the elements.
void readAttributes(const QvbString& name, std::string_view isActive, QvReposConfiguration& definition) {
  definition.setName(name);
  definition.setActive(isActive != "false");
}
void deriveType(QvReposConfiguration& definition) {
  if (definition.getUnifiedRepositoryConnectType().isNull())
    definition.setUnifiedRepositoryConnectType(inferredType(definition.getUnifiedRepositoryConnect()));
  definition.setUnifiedConnectionType(connectionTypeOf(definition.getUnifiedRepositoryConnectType()));
}

void readDefinition(const QvDomNode& element, const QvDomNode& root, QvReposConfiguration& definition) {
  readAttributes(element.getAttributeValue("Name"), element.getAttributeValue("IsActive").view(), definition);
  // The fields are the root's children even when the definition element is one of them.
  for (auto child = root.getFirstChild(false); !child.null(); child = child.getNextSibling(false))
    if (const auto* known = findElement(child.getName().view()))
      readElement(*known, child.getValue(false).view(), definition);
  deriveType(definition);
}

// What is left of a text that is expected to be one that the library wrote.
class WrittenText {
public:
  explicit WrittenText(std::string_view text) : m_rest(text) {}

  bool take(std::string_view expected) {
    if (!m_rest.starts_with(expected))
      return false;
    m_rest.remove_prefix(expected.size());
    return true;
  }
  // Up to the character that ends it, which stays. False where a character before it means more to XML than itself, or is
  // none of ASCII's.
  bool takeUpTo(char end, std::string_view* value) {
    const auto ending = std::find_if(m_rest.begin(), m_rest.end(), [end](char character) {
      return character == end || character < ' ' || character > '~' || character == '<' || character == '>' ||
             character == '&';
    });
    *value = m_rest.substr(0, static_cast<std::size_t>(ending - m_rest.begin()));
    m_rest.remove_prefix(value->size());
    return m_rest.starts_with(end);
  }
  bool isEmpty() const { return m_rest.empty(); }

private:
  std::string_view m_rest;
};

// `  <Name>text</Name>` or `  <Name/>`.
bool takeElement(WrittenText& xml, std::string_view name, std::string_view* text) {
  if (!xml.take("  <") || !xml.take(name))
    return false;
  if (xml.take("/>\n"))
    return true;
  return xml.take(">") && xml.takeUpTo('<', text) && xml.take("</") && xml.take(name) && xml.take(">\n");
}

} // namespace

bool readWrittenDefinition(std::string_view xml, QvReposConfiguration& definition) {
  std::string_view name, isActive;
  std::string_view texts[std::size(elements)];
  WrittenText rest(xml);
  if (!rest.take("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VaultRepositoryInfo Name=\"") ||
      !rest.takeUpTo('"', &name) || !rest.take("\" RepositoryType=\"Vault\" IsActive=\"") ||
      !rest.takeUpTo('"', &isActive) || !rest.take("\">\n"))
    return false;
  for (std::size_t i = 0; i < std::size(elements); ++i)
    if (!takeElement(rest, elements[i].name, &texts[i]))
      return false;
  if (!rest.take("</VaultRepositoryInfo>\n") || !rest.isEmpty())
    return false;
  readAttributes(QvbString(name), isActive, definition);
  for (std::size_t i = 0; i < std::size(elements); ++i)
    readElement(elements[i], texts[i], definition);
  deriveType(definition);
  return true;
}

void parseDefinition(const QvbString& xml, DefinitionFile& file) {
  const auto path = file.definition.getFilename();
  QvDom dom;
  if (!dom.loadXML(xml)) {
    if (lackedMemory(dom))
      throw std::bad_alloc();
    const auto error = dom.getErrorMessage();
    file.content = DefinitionFile::Content::Malformed;
    file.reason = qvbStringFormat("%S:%S", &path, &error);
  } else if (const auto element = findDefinition(dom.getRoot()); element.null()) {
    file.content = DefinitionFile::Content::NoDefinition;
    file.reason = qvbStringFormat("The file \"%S\" is not a valid definition file.", &path);
  } else {
    readDefinition(element, dom.getRoot(), file.definition);
    file.content = DefinitionFile::Content::Definition;
  }
}

bool writeConfigurationContents(QvReposConfiguration* definition, const QvbString& path, QvbString* error) {
  QvDom dom;
  if (!dom.startNewDocument(definitionElement))
    return false;
  writeDefinition(*definition, dom.getRoot());
  const bool written = dom.createFile(path, true, dom.getRoot());
  if (!written && error)
    *error = qvbStringFormat("Error opening file %S for writing content.", &path);
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
    file->reason = qvbStringFormat("%S: %s", &path, np_fio_errdesc(code));
  else if (readWrittenDefinition(xml.view(), file->definition))
    file->content = DefinitionFile::Content::Definition;
  else
    parseDefinition(xml, *file);
  return file;
}
