#include "qvxbase/qvbconfig.h"

#include "qvsfio/npfio.h"
#include "qvsfio/private/npnative.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbthreads.h"
#include "qvxbase/qvbunload.h"
#include "qvxlog/qvlog.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include <ini.h>

namespace {

constexpr std::int64_t maxFileSize = 1 << 20;
constexpr std::string_view whiteSpace = " \t\r\v\f";

using Options = std::unordered_map<QvbString, QvbString, QvbHashIgnoreCase, QvbEqualIgnoreCase>;

// Null when there is none.
QvbString valueIn(const Options& options, const QvbString& key) {
  const auto found = options.find(key);
  return found == options.end() ? QvbString() : found->second;
}

std::string_view stripped(std::string_view text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(whiteSpace), text.size()));
  return text.substr(0, text.find_last_not_of(whiteSpace) + 1);
}

// A ";" after white space begins a comment.
std::string_view withoutComment(std::string_view text) noexcept {
  return text.substr(0, std::min(text.find(" ;"), text.find("\t;")));
}

// Feeds the INI parser line by line. Lines come without their indentation, which the parser would take for
// the continuation of the line before. The parser's buffer holds some 200 bytes, fewer than a path may have:
// the value of a longer line stays here.
class OptionLines {
public:
  OptionLines(std::string_view content, Options& options) noexcept : m_rest(content), m_options(options) {}

  // The number of the first malformed line, 0 when there is none.
  int parse() {
    const int line = ini_parse_stream(readLine, this, takeOption, this);
    if (m_isOutOfMemory || line == ParserIsOutOfMemory)
      throw std::bad_alloc();
    return line;
  }

private:
  static constexpr int ParserIsOutOfMemory = -2;

  static char* readLine(char* buffer, int size, void* self) {
    return static_cast<OptionLines*>(self)->readLine(buffer, static_cast<std::size_t>(size));
  }
  static int takeOption(void* self, const char* section, const char* name, const char* value) {
    return static_cast<OptionLines*>(self)->takeOption(section, name, value);
  }

  char* readLine(char* buffer, std::size_t size) {
    if (m_rest.empty())
      return nullptr;
    const std::size_t end = std::min(m_rest.find('\n'), m_rest.size());
    std::string_view line = stripped(m_rest.substr(0, end));
    m_rest.remove_prefix(std::min(end + 1, m_rest.size()));
    m_longValue = {};
    if (line.size() >= size) {
      const std::size_t nameEnd = std::min(line.find_first_of("=:"), size - 2);
      m_longValue = stripped(withoutComment(line.substr(nameEnd + 1)));
      line = line.substr(0, nameEnd + 1);
    }
    line.copy(buffer, line.size());
    buffer[line.size()] = '\0';
    return buffer;
  }

  // No exception goes through the parser, which is C.
  int takeOption(std::string_view section, std::string_view name, std::string_view value) noexcept {
    try {
      QvbString key(section);
      if (!section.empty())
        key.append(std::string_view("/"));
      key.append(name);
      m_options[key] = QvbString(m_longValue.empty() ? value : m_longValue);
    } catch (const std::bad_alloc&) {
      m_isOutOfMemory = true;
    }
    return 1;
  }

  std::string_view m_rest;
  std::string_view m_longValue;
  Options& m_options;
  bool m_isOutOfMemory = false;
};

// The option file as it was read.
struct OptionFile {
  QvbString path;
  Options options;
  QvbString fault; // null when the file was readable and well-formed

  explicit OptionFile(const QvbString& name) : path(name) {
    QvbString content;
    if (const int code = np_fio_readAll(path, maxFileSize, &content); code != NP_FIO_OK)
      fault = qvbStringFormat("%s: cannot read the option file: %s", path, np_fio_errdesc(code));
    else if (const int line = OptionLines(content.view(), options).parse(); line != 0)
      fault = qvbStringFormat("%s:%d: malformed option line", path, line);
  }
  void logFault() const {
    if (!fault.isNull())
      QvLog("QV.Base.Config", "platform/qvxbase/qvbconfig").error("%s", fault);
  }
};

// Null when the variable is not set.
const char* environment(const char* name) {
  return std::getenv(name); // NOLINT(concurrency-mt-unsafe): hosts set it before they start threads
}

class ConfigStore final : public QvbConfigOptions {
public:
  bool getOption(const QvbString& key, QvbString* value, int) override {
    const QvbString found = lookup(key);
    if (value)
      *value = found;
    return !found.isNull();
  }
  void release() override {}

  void set(const QvbString& key, const QvbString& value) {
    const QvbMutexGuard guard(m_mutex);
    m_relativeFolders.erase(key);
    if (value.isNull())
      m_hostOptions.erase(key);
    else
      m_hostOptions[key] = value;
  }
  void clear() {
    const QvbMutexGuard guard(m_mutex);
    m_relativeFolders.clear();
    m_hostOptions.clear();
  }
  void setAvailable(bool available) noexcept { m_available = available; }
  bool isAvailable() const noexcept { return m_available; }

  // The folder that an option names by this relative path. It stays the same, wherever the process goes, until the
  // option names another one or is set anew.
  QvbString absoluteFolder(const QvbString& key, const QvbString& path) {
    const QvbMutexGuard guard(m_mutex);
    auto& known = m_relativeFolders[key];
    if (known.path != path || known.absolute.isNull()) {
      std::error_code error;
      const auto here = std::filesystem::current_path(error);
      if (error)
        return path;
      known = {path, qvbConcatPath(QvbString(here.c_str()), path)};
    }
    return known.absolute;
  }

private:
  struct RelativeFolder {
    QvbString path;
    QvbString absolute;
  };

  QvbString lookup(const QvbString& key) {
    QvbString value = hostOption(key);
    const char* const path = value.isNull() ? environment("QV_CONFIG") : nullptr;
    if (path && *path)
      value = valueIn(fileAt(path)->options, key);
    return value.isNull() && key.find("/") < 0 ? QvbString(environment(key.asCstr())) : value;
  }
  QvbString hostOption(const QvbString& key) {
    const QvbMutexGuard guard(m_mutex);
    return valueIn(m_hostOptions, key);
  }

  // The file is read without the lock, and is in its place before its fault is logged, since the log reads its own
  // options from here. Another thread may have read it first.
  std::shared_ptr<const OptionFile> fileAt(const char* path) {
    if (auto known = fileInPlace(path))
      return known;
    auto file = std::make_shared<const OptionFile>(path);
    if (auto other = putInPlace(file))
      return other;
    file->logFault();
    return file;
  }
  std::shared_ptr<const OptionFile> fileInPlace(const char* path) {
    const QvbMutexGuard guard(m_mutex);
    return m_file && m_file->path.view() == path ? m_file : nullptr;
  }
  // The file that has the place already, null when this one has it now.
  std::shared_ptr<const OptionFile> putInPlace(const std::shared_ptr<const OptionFile>& file) {
    const QvbMutexGuard guard(m_mutex);
    if (m_file && m_file->path == file->path)
      return m_file;
    m_file = file;
    return nullptr;
  }

  QvbMutex m_mutex;
  Options m_hostOptions QVB_GUARDED_BY(m_mutex);
  std::shared_ptr<const OptionFile> m_file QVB_GUARDED_BY(m_mutex);
  std::unordered_map<QvbString, RelativeFolder, QvbHashIgnoreCase, QvbEqualIgnoreCase>
      m_relativeFolders QVB_GUARDED_BY(m_mutex);
  std::atomic<bool> m_available{true};
};

ConfigStore& store() {
  static ConfigStore& instance = qvbUntilUnload<ConfigStore>();
  return instance;
}

} // namespace

QvbConfigOptions* qvbGetConfigOptions(const QvbString& name) {
  return name.isEmpty() && store().isAvailable() ? &store() : nullptr;
}

void qvbSetConfigOption(const QvbString& key, const QvbString& value) { store().set(key, value); }

void qvbClearConfigOptions() { store().clear(); }

void qvbSetConfigAvailable(bool available) { store().setAvailable(available); }

bool qvbCheckConfigFile(const QvbString& path, QvbString* fault) {
  *fault = OptionFile(path).fault;
  return fault->isNull();
}

QvbString qvbGetConfigOption(const char* key) {
  QvbString value;
  if (const Released<QvbConfigOptions> options{qvbGetConfigOptions(QvbString())})
    options->getOption(key, &value, 0);
  return value;
}

QvbOptionNumber qvbGetConfigNumber(const QvbNumberOption& option) {
  const QvbString given = qvbGetConfigOption(option);
  bool isNumber = false;
  const int value = given.asInt(&isNumber);
  if (isNumber && value >= option.least && value <= option.most)
    return {value, given, {}};
  return {option.standardNumber(), given, given};
}

QvbString qvbGetConfigFolder(const QvbFolderOption& option) {
  QvbString folder = qvbGetConfigOption(option);
  QvbString path;
  if (folder.isEmpty() || npfio::nativePath(folder, &path) != NP_FIO_OK)
    return folder;
  return path.view().starts_with('/') ? path : store().absoluteFolder(option.key, path);
}
