// Object types, file extensions, names and well-known folders of a repository.
//
// Output pointers are required unless said otherwise, and an output may be the text that is passed in. Texts
// that are returned as pointers last as long as the library. The functions may be called from any thread.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"

extern "C" {

// The default root folders of a repository: "data_services", "process_services", "batch_jobs",
// "foundations", then null.
QVREPOSRES_API const char* const* getDefaultRepositoryRootFolders();

// The characters that no object name may hold: / \ : ; , ? * < > |
QVREPOSRES_API const char* getInvalidNameChars();
// Whether the name holds one of them.
QVREPOSRES_API bool isInvalidCharInName(const QvbString& name);
// Appends the name to `out` with "_" for each invalid character. False for a null name or a null `out`.
QVREPOSRES_API bool getNormalizedNameValue(const QvbString& name, QvbString* out);

// Splits a path into folder (without its closing "/" unless that is all of it), name and extension (without
// its dot; the two-part extensions that parseFileExt() knows count as one). An empty folder or name leaves
// its output untouched, an absent extension makes its output empty, and a path that ends in "/" fills the
// folder alone. False, with nothing written, for an empty path.
QVREPOSRES_API bool getComponentsFromFilesystemPath(const QvbString& path, QvbString* extension,
                                                    QvbString* folder, QvbString* name);

// The object type of an extension (without its dot, in any case). An unknown extension leaves a `type` that
// holds text as it is, and makes an empty one "File". False, with `type` untouched, for a null extension.
// Extensions are compared over their first 255 bytes, zero bytes included.
QVREPOSRES_API bool getTypeForFileExtension(const QvbString& extension, QvbString* type);
// The extension of an object type, case included. False, with `extension` untouched, for a type without one.
// Types are compared as extensions are.
QVREPOSRES_API bool getFileExtensionForType(const QvbString& type, QvbString* extension);

// The repository URI of the foundations folder. This function and the two after it make `out` null
// when they fail.
QVREPOSRES_API bool getRepositoryFoundationsFolder(QvbString* out);
// The repository URI of the master data folder: option "MDM/REPOSITORY_ROOT_FOLDER", else
// foundations/master_data.
QVREPOSRES_API bool getMDMRepositoryRootFolder(QvbString* out);
// The file system folder of the master data templates, share/mdm below the option QVEXEC_HOME, whether it
// exists or not. False when that option is unset or empty.
QVREPOSRES_API bool getMDMTemplateRootFolder(QvbString* out);

// Every extension that getTypeForFileExtension() knows, then null.
QVREPOSRES_API const char* const* getKnownFileExtensions();
}

// Whether the path is not empty and ends in "/".
QVREPOSRES_API bool isDirectoryPath(const QvbString& path);

// The path without its extension, which `extension` (optional) receives without the dot. `simple` splits at
// the last "."; otherwise the two-part extensions of knowledge-base and metadata files ("chp.qkb", "rul.ueo")
// count as one, in any case, and a path of exactly seven characters passes for one without an extension. The
// last "." counts wherever it is, in a folder's name too. A path without an extension comes back whole, with
// an empty extension.
QVREPOSRES_API QvbString parseFileExt(const QvbString& path, QvbString* extension, bool simple);
