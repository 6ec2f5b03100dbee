// Conversion between repository URIs and file names.
//
// Schemes: "file" is a plain file, "qvr" an object below its repository's file root, "http" and "https" a remote file,
// whose name is that of the local copy in the file access cache. The functions may be called from any thread. An output
// may be one of the inputs.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"
#include "qvxbase/qvbsubject.h"
#include "qvxbase/qvuri.h"

extern "C" {

// The platform's convertBackSlashesToSlashes: true, with the converted text in `out`, when there was anything to convert.
QVREPOSRES_API bool fixFilesystemStringSlashes(const QvbString& in, QvbString* out);

// The repository URI of a file below a repository's folder (the longest matching one), else its file URI; a text that
// is a URI already comes back as it is. A folder's path ends at a separator: "/srv/repository/x" is not below
// "/srv/repo". False for an empty name and for a repository's folder itself.
QVREPOSRES_API bool generateURIReferenceFromFilename(const QvbString& filename, QvbString* uriReference);

// The file that a URI names, on behalf of the subject, who matters for remote files alone.
QVREPOSRES_API bool generateFilenameFromURIReference(ASSubject* subject, const QvbString& uriReference,
                                                     QvbString* filename);

// The same with the repository given by name, and with reasons. `isRelative` and `errorMessage` are optional;
// `isRelative` tells whether the result, or a text that is no URI, is a relative path.
QVREPOSRES_API bool generateFilenameFromURIandRepository(ASSubject* subject, const QvbString& uriReference,
                                                         const QvbString& repositoryName, QvbString* filename,
                                                         bool* isRelative, QvbString* errorMessage);
}

// The folder below which a repository's files lie: option "BASE/REPOS_FILE_ROOT" for all of them, else the vault path of
// the definition. The option may be a "file:" URI, and a relative path is made absolute when it is first read. False, with
// a null `root`, when neither is there.
QVREPOSRES_API bool getRepositoryFilesystemRoot(const QvbString& repositoryName, QvbString* root);

// The file below `root` that a repository URI names: by its object type, or by a path that ends in "name(Type)",
// whose name is the text before the bracket as it stands. False for every other path, and for one that holds a zero byte
// or climbs out of `root` with "..", at any of its steps.
QVREPOSRES_API bool generateFilenameFromVaultPath(QvbString root, QvURI* uri, QvbString* filename);
