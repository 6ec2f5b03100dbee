// Object types, file extensions, names and well-known folders of a repository.
//
// Output pointers are required unless said otherwise. The functions may be called from any thread.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"

extern "C" {

// "data_services", "process_services", "batch_jobs", "foundations", then null.
QVREPOSRES_API const char* const* getDefaultRepositoryRootFolders();

// The characters that no object name may hold: / \ : ; , ? * < > |
QVREPOSRES_API const char* getInvalidNameChars();
QVREPOSRES_API bool isInvalidCharInName(const QvbString& name);
// Appends the name to `out` with "_" for each invalid character. False for a null name or a null `out`.
QVREPOSRES_API bool getNormalizedNameValue(const QvbString& name, QvbString* out);

// Splits a path into folder, name and extension; parts that are empty leave their output untouched, and a path that
// ends in "/" fills the folder alone. False for an empty path.
QVREPOSRES_API bool getComponentsFromFilesystemPath(const QvbString& path, QvbString* extension,
                                                    QvbString* folder, QvbString* name);

// The object type of an extension in any case. An unknown extension leaves a `type` that holds text as it is, and makes
// an empty one "File". False for a null extension.
QVREPOSRES_API bool getTypeForFileExtension(const QvbString& extension, QvbString* type);
// The extension of an object type, case included. False, with `extension` untouched, for a type without one.
QVREPOSRES_API bool getFileExtensionForType(const QvbString& type, QvbString* extension);

// The repository URI of the foundations folder.
QVREPOSRES_API bool getRepositoryFoundationsFolder(QvbString* out);
// The repository URI of the master data folder: option "MDM/REPOSITORY_ROOT_FOLDER", else foundations/master_data.
QVREPOSRES_API bool getMDMRepositoryRootFolder(QvbString* out);
// The file system folder of the master data templates below QVEXEC_HOME. False when that is not set.
QVREPOSRES_API bool getMDMTemplateRootFolder(QvbString* out);
}

// Whether the path is not empty and ends in "/".
QVREPOSRES_API bool isDirectoryPath(const QvbString& path);

// The path without its extension, which `extension` (optional) receives without the dot. `simple` splits at the last
// "."; otherwise the two-part extensions of knowledge-base files ("chp.qkb") count as one. A path without an extension
// comes back whole, with an empty extension.
QVREPOSRES_API QvbString parseFileExt(const QvbString& path, QvbString* extension, bool simple);
