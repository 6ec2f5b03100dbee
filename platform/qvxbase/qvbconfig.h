// The configuration options of the process.
//
// An option is looked up in three places, and the first that has it wins: values that the host set, the
// option file that the environment variable QV_CONFIG names (INI: section BASE and key REPOS_SYS_PATH make
// "BASE/REPOS_SYS_PATH"), and, for keys without "/", the environment. The option file is read once and again
// when QV_CONFIG names another file. A file that cannot be read or that holds a malformed line is logged once
// at level 5 under "QV.Base.Config" with file and line; its readable keys still count. Section and key are
// compared without regard to case; ";" and "#" begin a comment line and " ;" one behind a value; of a key that
// stands twice the last one counts. All functions may be called from any thread.
#pragma once

#include "qvxbase/qvboptions.h"
#include "qvxbase/qvbstring.h"

class QVPLATFORM_API QvbConfigOptions {
public:
  // Whether the key is set. `value` becomes its text, or null when the key is unset. The last argument is
  // reserved: pass 0.
  virtual bool getOption(const QvbString& key, QvbString* value, int reserved) = 0;
  // Ends the use of this object.
  virtual void release() = 0;

protected:
  ~QvbConfigOptions() = default;
};

// The option store of the given name; the empty name is the process's own and the only one there is. Null for
// every other name and while the host has switched the store off. The caller releases it.
QVPLATFORM_API QvbConfigOptions* qvbGetConfigOptions(const QvbString& name);

// Sets a value over file and environment; a null value takes it back.
QVPLATFORM_API void qvbSetConfigOption(const QvbString& key, const QvbString& value);
// Takes back every value that the host set.
QVPLATFORM_API void qvbClearConfigOptions();
// A store that is switched off makes qvbGetConfigOptions answer null.
QVPLATFORM_API void qvbSetConfigAvailable(bool available);

// Whether a file can be read as an option file, for a host that would rather end than go on with half of its options; if
// not, `fault` tells why, with the file and the first malformed line.
QVPLATFORM_API bool qvbCheckConfigFile(const QvbString& path, QvbString* fault);

// The value of one option, null when it is unset or the store is switched off.
QVPLATFORM_API QvbString qvbGetConfigOption(const char* key);
inline QvbString qvbGetConfigOption(const QvbOption& option) { return qvbGetConfigOption(option.key); }

// What an option that is a number says.
struct QvbOptionNumber {
  int value;         // the standard one where the option says none
  QvbString given;   // as the option has it; null when it is unset or the store is switched off
  QvbString refused; // the same where it is no number in the option's range, else null
};
QVPLATFORM_API QvbOptionNumber qvbGetConfigNumber(const QvbNumberOption& option);

// The native path of the folder that an option names, which may be a "file:" URI. A relative path is made absolute when
// it is first read: it goes on naming that folder when the process changes its working folder. Null or empty when the
// option is; a URI of another host stays as it is.
QVPLATFORM_API QvbString qvbGetConfigFolder(const QvbFolderOption& option);
