#include "qvreposres/qvreposobjecttypes.h"

#include "guards.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbunload.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

namespace {

constexpr const char* rootFolders[] = {"data_services", "process_services", "batch_jobs", "foundations",
                                       nullptr};

constexpr const char* invalidNameChars = "/\\:;,?*<>|";

constexpr std::string_view dottedTwoPartExtensions[] = {
    ".chp.bfd", ".chp.qkb", ".gmr.bfd", ".gmr.qkb", ".phx.bfd", ".phx.qkb", ".rgx.bfd", ".rgx.qkb",
    ".sch.bfd", ".sch.qkb", ".vcb.bfv", ".vcb.qkv", ".rul.ueo", ".tsk.ueo", ".pfi.ueo", ".dax.ueo",
    ".cmt.ueo", ".src.ueo", ".fld.ueo", ".thd.ueo", ".dim.ueo", ".rpg.ueo"};
constexpr QvbString::Index dottedTwoPartLength = 8;
static_assert(std::ranges::all_of(dottedTwoPartExtensions, [](std::string_view extension) {
  return extension.size() == dottedTwoPartLength && extension[0] == '.' && extension[4] == '.';
}));

// Keys of the maps differ when their first 255 bytes do; a zero byte is one like any other.
std::string_view comparedPart(std::string_view key) { return key.substr(0, 255); }

struct MapCharCompare {
  bool operator()(std::string_view a, std::string_view b) const { return comparedPart(a) < comparedPart(b); }
};

struct MapCharCompareIgnoreCase {
  bool operator()(std::string_view a, std::string_view b) const {
    return qvbCompareIgnoreCase(comparedPart(a), comparedPart(b)) < 0;
  }
};

// The values are shared texts: handing one out copies nothing.
using ExtensionToTypeMap = std::map<std::string_view, QvbString, MapCharCompareIgnoreCase>;
using TypeToExtensionMap = std::map<std::string_view, QvbString, MapCharCompare>;

struct ExtensionType {
  const char* extension;
  const char* type;
};

constexpr ExtensionType extensionTypes[] = {
    {"djf", "ProcessJob"},
    {"dmc", "ArchitectJob"},
    {"ddf", "DataJob"},
    {"anc", "File"},
    {"chp.bfd", "ChopTable"},
    {"chp.qkb", "ChopTable"},
    {"dax.ueo", "DataExploration"},
    {"sri", "EntityResolution"},
    {"qvo", "FileDefinition"},
    {"qvl", "FileDefinitionLayout"},
    {"gmr.bfd", "Grammar"},
    {"gmr.qkb", "Grammar"},
    {"html", "File"},
    {"htm", "File"},
    {"qve", "MatchFile"},
    {"mdf", "MatchJob"},
    {"mre", "MatchReport"},
    {"pfi.ueo", "ProfileJob"},
    {"pfo", "ProfileReport"},
    {"phx.bfd", "Phonetics"},
    {"phx.qkb", "Phonetics"},
    {"qltykb.db", "QualityKnowledgeBase"},
    {"rgx.bfd", "Regex"},
    {"rgx.qkb", "Regex"},
    {"rul.ueo", "Rule"},
    {"zel", "ZELFile"},
    {"sch.bfd", "Scheme"},
    {"sch.qkb", "Scheme"},
    {"tbl", "TableTemplate"},
    {"tsk.ueo", "Task"},
    {"vcb.bfv", "Vocab"},
    {"vcb.qkv", "Vocab"},
    {"xsq", "XMLSQLQuery"},
    {"cmt.ueo", "CustomMetric"},
    {"cln.ueo", "Collection"},
    {"fld.ueo", "Field"},
    {"src.ueo", "Source"},
    {"wfs", "ProcessJobState"},
    {"met", "MDMEntityTemplate"},
    {"dim.ueo", "Dimension"},
    {"rpg.ueo", "Dashboard"},
    {"thd.ueo", "Threshold"},
};

// The extensions of the table, then null.
constexpr auto knownExtensions = [] {
  std::array<const char*, std::size(extensionTypes) + 1> extensions{};
  std::ranges::transform(extensionTypes, extensions.begin(), &ExtensionType::extension);
  return extensions;
}();

const ExtensionToTypeMap& extensionToType() {
  static const auto& map = qvbUntilUnload<ExtensionToTypeMap>([] {
    ExtensionToTypeMap types;
    for (const auto& row : extensionTypes)
      types.emplace(row.extension, row.type);
    return types;
  }());
  return map;
}

// Not the inverse of extensionToType(): one extension stands for each type, "File" has none, and
// "AncestryFile", "HTML" and "HTM" come from no extension.
// Kept: FileExtensions.AreGivenForEveryType
const TypeToExtensionMap& typeToExtension() {
  static const auto& map = qvbUntilUnload<TypeToExtensionMap>(TypeToExtensionMap{
      {"ProcessJob", "djf"},
      {"ArchitectJob", "dmc"},
      {"DataJob", "ddf"},
      {"XMLSQLQuery", "xsq"},
      {"AncestryFile", "anc"},
      {"ChopTable", "chp.qkb"},
      {"DataExploration", "dax.ueo"},
      {"EntityResolution", "sri"},
      {"FileDefinition", "qvo"},
      {"FileDefinitionLayout", "qvl"},
      {"Grammar", "gmr.qkb"},
      {"HTML", "html"},
      {"HTM", "htm"},
      {"MatchFile", "qve"},
      {"MatchJob", "mdf"},
      {"MatchReport", "mre"},
      {"ProfileJob", "pfi.ueo"},
      {"ProfileReport", "pfo"},
      {"Phonetics", "phx.qkb"},
      {"QualityKnowledgeBase", "qltykb.db"},
      {"Regex", "rgx.qkb"},
      {"Rule", "rul.ueo"},
      {"ZELFile", "zel"},
      {"Scheme", "sch.qkb"},
      {"TableTemplate", "tbl"},
      {"Task", "tsk.ueo"},
      {"Vocab", "vcb.qkv"},
      {"CustomMetric", "cmt.ueo"},
      {"Collection", "cln.ueo"},
      {"Field", "fld.ueo"},
      {"Source", "src.ueo"},
      {"ProcessJobState", "wfs"},
      {"MDMEntityTemplate", "met"},
      {"Dimension", "dim.ueo"},
      {"Dashboard", "rpg.ueo"},
      {"Threshold", "thd.ueo"},
  });
  return map;
}

// Few paths have both dots, so that most are not compared with the table.
bool endsInTwoPartExtension(std::string_view path) {
  if (path.size() < dottedTwoPartLength)
    return false;
  const auto end = path.substr(path.size() - dottedTwoPartLength);
  return end[0] == '.' && end[4] == '.' &&
         std::ranges::any_of(dottedTwoPartExtensions,
                             [&](std::string_view extension) { return qvbEqualsIgnoreCase(end, extension); });
}

// The position of the "." before the extension, a two-part one where the path ends in one; -1 when there is
// none.
//
// A path of seven characters, one fewer than a dotted two-part extension has, passes for one without an
// extension; getComponentsFromFilesystemPath() makes up for it.
QvbString::Index findExtension(const QvbString& path) {
  // Kept: ExtensionSplit.NeverSplitsSevenCharactersUnlessSimple
  if (path.length() == dottedTwoPartLength - 1)
    return -1;
  return endsInTwoPartExtension(path.view()) ? path.length() - dottedTwoPartLength : path.rfind(".");
}

// The URI of a folder in the repository that has no name.
bool getFolderURI(const QvbString& path, QvbString* out) {
  const Released<QvURI> uri(getReposURIFromComponents("", path, "Folder"));
  if (!uri)
    return false;
  *out = uri->asString();
  return true;
}

} // namespace

const char* const* getDefaultRepositoryRootFolders() { return rootFolders; }

const char* getInvalidNameChars() { return invalidNameChars; }

bool isInvalidCharInName(const QvbString& name) {
  return name.view().find_first_of(invalidNameChars) != std::string_view::npos;
}

bool getNormalizedNameValue(const QvbString& name, QvbString* out) {
  if (name.isNull() || !out)
    return false;
  std::string normalized(name.view());
  for (auto at = normalized.find_first_of(invalidNameChars); at != std::string::npos;
       at = normalized.find_first_of(invalidNameChars, at + 1))
    normalized[at] = '_';
  if (!normalized.empty())
    out->append(std::string_view(normalized));
  return true;
}

bool isDirectoryPath(const QvbString& path) { return path.view().ends_with('/'); }

QvbString parseFileExt(const QvbString& path, QvbString* extension, bool simple) {
  const QvbString::Index dot = simple ? path.rfind(".") : findExtension(path);
  QvbString base = dot < 0 ? path : path.mid(0, dot);
  if (extension)
    *extension = dot < 0 ? QvbString("") : path.mid(dot + 1);
  return base;
}

bool getComponentsFromFilesystemPath(const QvbString& path, QvbString* extension, QvbString* folder,
                                     QvbString* name) {
  if (path.isEmpty())
    return false;
  QvbString parsedFolder;
  QvbString file;
  QvbString base;
  QvbString parsedExtension;
  qvbParsePath(path, &parsedFolder, &file);
  const bool isFile = !file.isEmpty(); // else a directory path
  if (isFile)
    base = parseFileExt(file, &parsedExtension, false);
  if (isFile && parsedExtension.isEmpty())
    base = parseFileExt(file, &parsedExtension, true);
  if (!parsedFolder.isEmpty())
    *folder = parsedFolder;
  if (isFile)
    *extension = parsedExtension;
  if (!base.isEmpty())
    *name = base;
  return true;
}

bool getTypeForFileExtension(const QvbString& extension, QvbString* type) {
  if (extension.isNull())
    return false;
  const auto row = extensionToType().find(extension.view());
  if (row != extensionToType().end())
    *type = row->second;
  // Kept: ObjectTypes.OfAnUnknownExtensionLeaveATextThatIsThere
  if (type->isEmpty())
    *type = "File";
  return true;
}

bool getFileExtensionForType(const QvbString& type, QvbString* extension) {
  if (type.isNull())
    return false;
  const auto row = typeToExtension().find(type.view());
  if (row == typeToExtension().end())
    return false;
  *extension = row->second;
  return true;
}

const char* const* getKnownFileExtensions() { return knownExtensions.data(); }

bool getRepositoryFoundationsFolder(QvbString* out) {
  out->setNull();
  return getFolderURI("foundations", out);
}

bool getMDMRepositoryRootFolder(QvbString* out) {
  out->setNull();
  const QvbString configured = qvbGetConfigOption(QvbOptions::MasterDataFolder);
  if (!configured.isEmpty() && getFolderURI(configured, out))
    return true;
  return getFolderURI(QvbOptions::MasterDataFolder.standard, out);
}

bool getMDMTemplateRootFolder(QvbString* out) {
  out->setNull();
  const QvbString home = qvbGetConfigOption(QvbOptions::InstallationFolder);
  if (home.isEmpty())
    return false;
  // Both names with their separators, and room for a home that ends in one.
  std::string share(home.cStrSize() + sizeof "share" + sizeof "mdm" + 1, '\0');
  std::string folder(share.size(), '\0');
  if (np_fio_pcat(home.asCstr(), "share", share.data(), share.size()) == NP_FIO_OK &&
      np_fio_pcat(share.c_str(), "mdm", folder.data(), folder.size()) == NP_FIO_OK)
    *out = folder.c_str();
  return true;
}
