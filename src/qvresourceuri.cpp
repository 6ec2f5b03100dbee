// Conversion between repository URIs and file names.
#include "qvreposres/qvresourceuri.h"

#include "guards.h"
#include "qvreposconfigmgrimpl.h"
#include "qvreposres/qvfilecache.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbresult.h"
#include "repositoryfolders.h"

#include <algorithm>
#include <optional>

namespace {

enum class Scheme { File, Repository, Web, Other };

Scheme schemeOf(QvURI& uri) {
  const auto scheme = uri.getScheme();
  const auto is = [&](std::string_view name) { return qvbEqualsIgnoreCase(scheme.view(), name); };
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

bool isRelativePath(const QvbString& path) { return !path.view().starts_with('/'); }

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
  if (qvbEqualsIgnoreCase(type.view(), "File"))
    return path;
  return path.mid(0, path.length() - extension.length() - 1);
}

bool writeURIText(QvURI* uri, QvbString* text) {
  const Released<QvURI> owned(uri);
  if (owned)
    *text = owned->asString();
  return owned != nullptr;
}

struct TypedPath {
  QvbString path;
  QvbString type;
};

// Splits "folder/name(Type)"; the path is the text before the bracket as it stands. Nothing for a path that names no type,
// as one that goes on behind the bracket.
std::optional<TypedPath> splitTypedPath(const QvbString& text) {
  const auto open = text.rfind("(");
  if (open <= 0 || !text.view().ends_with(')'))
    return std::nullopt;
  const auto close = text.length() - 1;
  return TypedPath{text.mid(0, open), text.mid(open + 1, close - open - 1)};
}

// What a repository URI calls its object: by the type parameter, or by a path that holds the type.
std::optional<TypedPath> typedPathOf(QvURI& uri) {
  const auto path = uri.getPath();
  auto* data = uri.getDataURI();
  const auto type = data ? data->getObjectType() : QvbString();
  return type.isEmpty() ? splitTypedPath(path) : TypedPath{path, type};
}

// The path of the object with the extension of its type; without one for types that have none.
QvbString objectFilename(const TypedPath& object) {
  auto filename = object.path;
  QvbString extension;
  if (getFileExtensionForType(object.type, &extension) && !extension.isEmpty())
    filename.append(".").append(extension);
  return withSlashes(filename);
}

// Whether the path leaves the folder that it begins in, at any of its steps.
bool climbsOut(std::string_view path) {
  std::ptrdiff_t depth = 0;
  while (!path.empty() && depth >= 0) {
    const auto step = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(step.size() + 1, path.size()));
    if (step == "..")
      --depth;
    else if (!step.empty() && step != ".")
      ++depth;
  }
  return depth < 0;
}

// Why an object names no file below its root, as the format of a message about its URI; null when nothing speaks against
// it.
const char* pathDefect(const QvbString& path, const QvbString& objectFile) {
  if (path.view().find('\0') != std::string_view::npos)
    return "The path of the URI %s holds a zero byte.";
  return climbsOut(objectFile.view()) ? "The path of the URI %s leads out of the folder of the repository."
                                      : nullptr;
}

// Writes the file below the root that a repository URI names. `message` tells what is wrong with the path of an object,
// and stays as it is when the URI names none.
bool findVaultFile(const QvbString& root, QvURI& uri, QvbString* filename, QvbString* message) {
  const auto path = uri.getPath();
  const auto object = path.isEmpty() ? std::nullopt : typedPathOf(uri);
  if (!object)
    return false;
  const auto objectFile = objectFilename(*object);
  if (const char* defect = pathDefect(path, objectFile))
    return qvbFailWith(qvbStringFormat(defect, uri.asString()), message);
  *filename = withSlashes(qvbConcatPath(root, objectFile));
  return true;
}

// What a reference leads to, gathered apart from the caller's outputs: these may be the inputs.
struct Conversion {
  QvbString filename;
  bool isRelative = false;
  QvbString message;
};

bool convertFile(QvURI& uri, Conversion& result) {
  const bool done = getNativePath(&uri, &result.filename);
  result.isRelative = done && isRelativePath(result.filename);
  return done;
}

bool convertRepositoryObject(QvURI& uri, const QvbString& repository, Conversion& result) {
  QvbString root;
  if (getRepositoryFilesystemRoot(repository, &root))
    return findVaultFile(root, uri, &result.filename, &result.message);
  if (!repository.isEmpty())
    return false;
  return qvbFailWith("No repository name was supplied to output the filename from URI and repository.",
                     &result.message);
}

bool convertRemoteFile(ASSubject* subject, const QvbString& reference, Conversion& result) {
  auto* cache = getFileCache();
  if (!cache)
    return qvbFailWith("No file cache available", &result.message);
  return cache->getCacheFilename(subject, reference, &result.filename, &result.message) == 0;
}

bool convertURI(ASSubject* subject, QvURI& uri, const QvbString& reference, const QvbString& repository,
                Conversion& result) {
  switch (schemeOf(uri)) {
  case Scheme::File:
    return convertFile(uri, result);
  case Scheme::Repository:
    return convertRepositoryObject(uri, repository, result);
  case Scheme::Web:
    return convertRemoteFile(subject, reference, result);
  case Scheme::Other:
    break;
  }
  return qvbFailWith(
      qvbStringFormat("The URI %s is not a supported format to convert into filename.", reference),
      &result.message);
}

bool convertReference(ASSubject* subject, const QvbString& reference, const QvbString& repository,
                      Conversion& result) {
  const Released<QvURI> uri(getURIFromURIString(reference));
  if (uri)
    return convertURI(subject, *uri, reference, repository, result);
  result.isRelative = isRelativePath(reference);
  return false;
}

} // namespace

bool fixFilesystemStringSlashes(const QvbString& in, QvbString* out) {
  return convertBackSlashesToSlashes(in, out);
}

bool getRepositoryFilesystemRoot(const QvbString& repositoryName, QvbString* root) {
  auto path = qvbGetConfigFolder(QvbOptions::RepositoryFileRoot);
  if (path.isEmpty()) {
    const Released<QvReposConfiguration> definition(
        QvReposConfigManagerImpl().getConfigurationByName(repositoryName));
    path = definition ? definition->getVaultPath() : QvbString();
  }
  *root = path.isEmpty() ? QvbString() : path;
  return !path.isEmpty();
}

bool generateURIReferenceFromFilename(const QvbString& filename, QvbString* uriReference) {
  return generateURIReference(filename, nullptr, uriReference);
}

bool generateURIReference(const QvbString& filename, RepositoryFolders* folders, QvbString* uriReference) {
  if (filename.isEmpty())
    return false;
  if (isURIReference(filename)) {
    *uriReference = filename;
    return true;
  }
  const auto place = folders ? folders->find(filename) : RepositoryFolders().find(filename);
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
  Conversion result;
  if (!uri || !convertURI(subject, *uri, uriReference, uri->getAuthority(), result))
    return false;
  *filename = result.filename;
  return true;
}

bool generateFilenameFromURIandRepository(ASSubject* subject, const QvbString& uriReference,
                                          const QvbString& repositoryName, QvbString* filename,
                                          bool* isRelative, QvbString* errorMessage) {
  if (uriReference.isEmpty())
    return qvbFailWith("The URI reference must be supplied to generate filename from URI.", errorMessage);
  if (!filename)
    return qvbFailWith("The output string must be supplied to output the filename from URI.", errorMessage);
  Conversion result;
  const bool done = convertReference(subject, uriReference, repositoryName, result);
  *filename = result.filename;
  if (isRelative)
    *isRelative = result.isRelative;
  if (errorMessage)
    *errorMessage = result.message;
  return done;
}

// The root is a value, not a reference: its exported name carries that.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool generateFilenameFromVaultPath(QvbString root, QvURI* uri, QvbString* filename) {
  QvbString message;
  return findVaultFile(root, *uri, filename, &message);
}
