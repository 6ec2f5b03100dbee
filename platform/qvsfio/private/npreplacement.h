// A new file that takes another one's place all at once, or not at all.
#pragma once

#include "qvsfio/private/npnative.h"
#include "qvxbase/qvbresult.h"

#include <cstdint>
#include <memory>
#include <string>

#include <sys/types.h>

namespace npfio {

// The bytes go into a temporary file beside the target, which commit() gives the target's name. A target that is a
// symbolic link is followed: the file that it points at is replaced, not the link.
class Replacement {
public:
  enum class Kind {
    // 0600, and whole when it takes its place. What can be made again need not survive a power cut.
    PrivateCopy,
    // With the permissions of the old file, or 0644 less the umask, and on disk when it takes its place. The two names
    // are exchanged, so that the old file can be put back when the folder cannot be flushed.
    Document
  };

  // Only a regular file can be replaced.
  static QvbResult<std::unique_ptr<Replacement>> open(const QvbString& path, Kind kind);
  // Without a successful commit() the old file is what it was, or, where it could not be put back or exchanged,
  // what np_fio_close() says.
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // The bytes written, all of them, or a code's negative, which commit() answers again.
  std::int64_t write(const void* bytes, std::size_t size);
  int commit();

private:
  Replacement(std::string path, Kind kind);

  int prepare();
  int inspectOldFile(mode_t* permissions, bool* exists) const;
  int createTemporary(mode_t permissions, bool exact);
  int takePlace();
  int exchange();
  int flushFolder() const;
  void putBack();
  void removeFile(const std::string& name) const;
  int rename(unsigned flags) const;

  enum class State {
    Absent,    // no temporary file
    Written,   // the temporary name has the new file
    Exchanged, // the temporary name has the old file
    SetAside,  // it keeps the old file, which could not be put back
    Created,   // there was no old file
    Overwrote  // the old file is gone: it is no document, or the file system cannot exchange names
  };

  const Kind m_kind;
  std::string m_path; // the target, symbolic links followed
  std::string m_folderPath;
  std::string m_name;
  std::string m_temporaryName;
  Descriptor m_folder;
  Descriptor m_file;
  State m_state = State::Absent;
  int m_failure = NP_FIO_OK;
};

} // namespace npfio
