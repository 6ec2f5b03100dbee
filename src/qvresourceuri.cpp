// Conversion between repository URIs and file names.
#include "qvreposres/qvresourceuri.h"

#include "guards.h"
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"

#include <optional>

namespace {

enum class Scheme { File, Repository, Web, Other };

Scheme schemeOf(QvURI& uri) {
  const auto scheme = uri.getScheme();
  const auto is = [&](const char* name) { return scheme.compare(name, true) == 0; };
  if (is("file"))
    return Scheme::File;
  if (is("qvr"))
    return Scheme::Repository;
  return is("http") || is("https") ? Scheme::Web : Scheme::Other;
}

QvbString withSlashes(const QvbString& path) {
  QvbString converted;
  return fixFilesystemStringSlashes(path, &converted) ? converted : path;
}

bool isSeparator(char character) { return character == '/' || character == '\\'; }

bool isRelativePath(const QvbString& path) { return !path.view().starts_with('/'); }

// The file name without its folder's path and separator; nothing for a file that does not lie below the folder. A folder
// is left at a separator only: "/srv/repository/x" is not below "/srv/repo".
std::optional<QvbString> pathBelow(const QvbString& folder, const QvbString& filename) {
  const auto length = folder.length();
  if (folder.isEmpty() || !filename.view().starts_with(folder.view()))
    return std::nullopt;
  if (filename.length() == length)
    return QvbString("");
  if (!isSeparator(filename.view()[static_cast<std::size_t>(length)]))
    return std::nullopt;
  return filename.mid(length + 1);
}

struct RepositoryPath {
  QvbString repository;
  QvbString path;
};

// The place of a file in the repository with the longest folder above it, the first one loaded among equals.
std::optional<RepositoryPath> findRepositoryPath(const QvbString& filename) {
  const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
  const Released<QvReposConfigurationList> definitions(manager->getConfigurations());
  std::optional<RepositoryPath> best;
  QvbString::Index bestLength = 0;
  while (definitions && definitions->next()) {
    const Released<QvReposConfiguration> definition(definitions->getValue());
    const auto vaultPath = definition->getVaultPath();
    const auto path = pathBelow(vaultPath, filename);
    if (path && vaultPath.length() > bestLength) {
      bestLength = vaultPath.length();
      best = {definition->getName(), *path};
    }
  }
  return best;
}

QvbString objectTypeOf(const QvbString& filename, QvbString* extension) {
  QvbString folder;
  QvbString name;
  QvbString type = "File";
  if (getComponentsFromFilesystemPath(filename, extension, &folder, &name))
    getTypeForFileExtension(*extension, &type);
  return type;
}

// Objects are named without the extension, which their type implies; plain files with it.
QvbString objectPath(const QvbString& path, const QvbString& type, const QvbString& extension) {
  if (type.compare("File", true) == 0)
    return path;
  return path.mid(0, path.length() - extension.length() - 1);
}

bool writeURIText(QvURI* uri, QvbString* text) {
  const Released<QvURI> owned(uri);
  if (owned)
    *text = owned->asString();
  return owned != nullptr;
}

// The path of a repository object with the extension of its type; without one for types that have none.
QvbString objectFilename(const QvbString& root, const QvbString& path, const QvbString& type) {
  auto filename = qvbConcatPath(root, path);
  QvbString extension;
  if (getFileExtensionForType(type, &extension) && !extension.isEmpty())
    filename.append(".").append(extension);
  return filename;
}

struct TypedPath {
  QvbString path;
  QvbString type;
};

// Splits "folder/name(Type)"; the path is the text before the bracket as it stands.
std::optional<TypedPath> splitTypedPath(const QvbString& text) {
  const auto open = text.rfind("(");
  const auto close = text.rfind(")");
  if (open <= 0 || close <= open)
    return std::nullopt;
  return TypedPath{text.mid(0, open), text.mid(open + 1, close - open - 1)};
}

// What a repository URI calls its object: by the type parameter, or by a path that holds the type.
std::optional<TypedPath> typedPathOf(QvURI& uri) {
  const auto path = uri.getPath();
  auto* data = uri.getDataURI();
  const auto type = data ? data->getObjectType() : QvbString();
  return type.isEmpty() ? splitTypedPath(path) : TypedPath{path, type};
}

bool repositoryFilename(const QvbString& repository, QvURI* uri, QvbString* filename) {
  QvbString root;
  return getRepositoryFilesystemRoot(repository, &root) && generateFilenameFromVaultPath(root, uri, filename);
}

// Gathers what generateFilenameFromURIandRepository reports through its optional outputs.
class ConversionReport {
public:
  ConversionReport(bool* isRelative, QvbString* message) : m_isRelative(isRelative), m_message(message) {}

  void clear() {
    setRelative(false);
    if (m_message)
      m_message->setNull();
  }
  void setRelative(bool relative) {
    if (m_isRelative)
      *m_isRelative = relative;
  }
  bool fail(const QvbString& message) {
    if (m_message)
      *m_message = message;
    return false;
  }

private:
  bool* m_isRelative;
  QvbString* m_message;
};

bool fileURIFilename(QvURI* uri, QvbString* filename, ConversionReport& report) {
  if (!getNativePath(uri, filename))
    return false;
  report.setRelative(isRelativePath(*filename));
  return true;
}

bool repositoryURIFilename(const QvbString& repository, QvURI* uri, QvbString* filename,
                           ConversionReport& report) {
  QvbString root;
  if (getRepositoryFilesystemRoot(repository, &root))
    return generateFilenameFromVaultPath(root, uri, filename);
  if (!repository.isEmpty())
    return false;
  return report.fail("No repository name was supplied to output the filename from URI and repository.");
}

bool cachedFilename(ASSubject* subject, const QvbString& reference, QvbString* filename,
                    ConversionReport& report) {
  auto* cache = getFileCache();
  if (!cache)
    return report.fail("No file cache available");
  QvbString error;
  if (cache->getCacheFilename(subject, reference, filename, &error) == 0)
    return true;
  return error.isNull() ? false : report.fail(error);
}

} // namespace

bool fixFilesystemStringSlashes(const QvbString& in, QvbString* out) {
  return convertBackSlashesToSlashes(in, out);
}

bool getRepositoryFilesystemRoot(const QvbString& repositoryName, QvbString* root) {
  const auto commonRoot = qvbGetConfigOption("BASE/REPOS_FILE_ROOT");
  if (!commonRoot.isEmpty()) {
    *root = commonRoot;
    return true;
  }
  const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
  const Released<QvReposConfiguration> definition(manager->getConfigurationByName(repositoryName));
  const auto vaultPath = definition ? definition->getVaultPath() : QvbString();
  if (vaultPath.isEmpty())
    return false;
  *root = vaultPath;
  return true;
}

bool generateURIReferenceFromFilename(const QvbString& filename, QvbString* uriReference) {
  if (filename.isEmpty())
    return false;
  if (filename.find("://") > 0 && Released<QvURI>(getURIFromURIString(filename))) {
    *uriReference = filename;
    return true;
  }
  const auto place = findRepositoryPath(filename);
  if (!place)
    return writeURIText(getURI("file", QvbString(), withSlashes(filename)), uriReference);
  QvbString extension;
  const auto type = objectTypeOf(filename, &extension);
  const auto path = withSlashes(objectPath(place->path, type, extension));
  return writeURIText(getReposURIFromComponents(place->repository, path, type), uriReference);
}

bool generateFilenameFromURIReference(ASSubject* subject, const QvbString& uriReference,
                                      QvbString* filename) {
  const Released<QvURI> uri(filename ? getURIFromURIString(uriReference) : nullptr);
  if (!uri)
    return false;
  ConversionReport silent(nullptr, nullptr);
  switch (schemeOf(*uri)) {
  case Scheme::File:
    return getNativePath(uri.get(), filename);
  case Scheme::Repository:
    return repositoryFilename(uri->getAuthority(), uri.get(), filename);
  case Scheme::Web:
    return cachedFilename(subject, uriReference, filename, silent);
  case Scheme::Other:
    break;
  }
  return false;
}

bool generateFilenameFromURIandRepository(ASSubject* subject, const QvbString& uriReference,
                                          const QvbString& repositoryName, QvbString* filename,
                                          bool* isRelative, QvbString* errorMessage) {
  ConversionReport report(isRelative, errorMessage);
  if (uriReference.isEmpty())
    return report.fail("The URI reference must be supplied to generate filename from URI.");
  if (!filename)
    return report.fail("The output string must be supplied to output the filename from URI.");
  filename->setNull();
  report.clear();
  const Released<QvURI> uri(getURIFromURIString(uriReference));
  if (!uri) {
    report.setRelative(isRelativePath(uriReference));
    return false;
  }
  switch (schemeOf(*uri)) {
  case Scheme::File:
    return fileURIFilename(uri.get(), filename, report);
  case Scheme::Repository:
    return repositoryURIFilename(repositoryName, uri.get(), filename, report);
  case Scheme::Web:
    return cachedFilename(subject, uriReference, filename, report);
  case Scheme::Other:
    break;
  }
  return report.fail(qvbStringFormat("The URI %s is not a supported format to convert into filename.",
                                     uriReference.asCstr()));
}

bool generateFilenameFromVaultPath(QvbString root, QvURI* uri, QvbString* filename) {
  const auto object = uri->getPath().isEmpty() ? std::nullopt : typedPathOf(*uri);
  if (object)
    *filename = withSlashes(objectFilename(root, object->path, object->type));
  return object.has_value();
}
