// A file cache of the test's own, its sources and what it logs, at a time that stands still.
#pragma once

#include "qvfilecacheimpl.h"
#include "qvxbase/qvbconfig.h"
#include "support/clock.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

inline constexpr const char* intervalKey = "BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS";
inline constexpr const char* longInterval = "2000000000";
inline const std::string uuid = "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[0-9a-f]{4}-[0-9a-f]{12}";

// A record of the cache.
inline LogLine line(int level, const std::string& text) {
  return {"QV.FileAccessCache", level, "src/qvfilecacheimpl", text};
}

// The records of looking a name's source up, for a name that is no URI.
inline LogLine usesFiles(const std::string& name) {
  return line(1, "getCacheSourceProviderForFileType: Using filesystem provider for " + name);
}

// A pointer as records show it.
inline std::string shown(const void* pointer) {
  if (!pointer)
    return "0x(nil)";
  std::ostringstream out;
  out << "0x" << pointer;
  return out.str();
}

// A source that answers from its fields and notes what it was asked. Its end and its flushes are in the log too.
struct RecordingProvider final : FileAccessCacheSourceProvider {
  void release() override {
    noteEvent("released");
    ++released;
  }
  bool exists(ASSubject*, const QvbString& name, QvbString*) override {
    note("exists " + str(name));
    return true;
  }
  int getModifiedDate(ASSubject*, const QvbString& name, QvbDate* out, QvbString* errorText,
                      bool refresh) override {
    note("getModifiedDate " + str(name) + (refresh ? " anew" : ""));
    *errorText = error;
    *out = date;
    return dateResult;
  }
  int updateLocalFileContent(ASSubject*, const QvbString& name, const QvbString& localFilename,
                             QvbString* errorText) override {
    note("updateLocalFileContent " + str(name));
    lastLocal = str(localFilename);
    *errorText = copyError;
    if (copyResult == 0)
      std::ofstream(lastLocal) << content;
    return copyResult;
  }
  bool flush(bool flag) override {
    note(flag ? "flush true" : "flush false");
    noteEvent("flushed");
    return flushResult;
  }

  std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

  std::vector<std::string> calls;
  std::function<void()> whenCalled = [] {};
  std::string lastLocal;
  std::string content = "provided";
  QvbDate date;
  QvbString error;
  QvbString copyError;
  int dateResult = 0;
  int copyResult = 0;
  bool flushResult = false;
  int released = 0;

private:
  void note(const std::string& call) {
    calls.push_back(call);
    whenCalled();
  }
  void noteEvent(const char* event) {
    whenCalled();
    qvlogGetLogger("test")->logEvent(QvLoggingLevel::Trace, "test", __LINE__, "The host's source is %s",
                                     event);
  }
};

// What a request for a local copy gave.
struct Got {
  int result;
  std::string local;
  std::string error;

  bool operator==(const Got&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Got& got) {
  return out << '{' << got.result << ", \"" << got.local << "\", \"" << got.error << "\"}";
}

inline QvbDate dateOf(int year, int millisecond = 0) {
  QvbDate date;
  date.assign(year, 1, 2, 3, 4, 5, millisecond);
  return date;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline std::vector<std::string> textsOf(const std::vector<LogLine>& lines) {
  std::vector<std::string> texts;
  for (const LogLine& record : lines)
    texts.push_back(record.text);
  return texts;
}

// TMPDIR is a folder of the test's own.
class FileCache : public testing::Test {
protected:
  FileCache() {
    if (const char* before = std::getenv("TMPDIR"))
      m_before = before;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    remake(longInterval);
    provider.date = dateOf(2020);
  }
  ~FileCache() override {
    cache.reset();
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()) || leavesFolder);
    m_before ? ::setenv("TMPDIR", m_before->c_str(), 1) : ::unsetenv("TMPDIR");
    qvbClearConfigOptions();
  }

  void remake(const QvbString& interval) {
    cache.reset();
    qvbSetConfigOption(intervalKey, interval);
    cache.reset(new FileAccessCacheImpl);
    log.clear();
  }
  std::string cacheFolder() const {
    return std::filesystem::directory_iterator(temporary.path())->path().string();
  }

  // What the cache logged since the last call.
  std::vector<LogLine> logged() {
    auto lines = log.lines("QV.FileAccessCache");
    log.clear();
    return lines;
  }
  Got get(const std::string& name, ASSubject* subject) {
    QvbString local, reason;
    const int result = cache->getCacheFilename(subject, text(name), &local, &reason);
    return {result, str(local), str(reason)};
  }
  Got get(const std::string& name) { return get(name, alice.get()); }
  bool isModified(const std::string& name) {
    bool modified = false;
    EXPECT_EQ(cache->isModified(alice.get(), text(name), &modified, &error), 0);
    return modified;
  }
  int update(FileAccessCacheEntry& entry, const QvbString& name = "name") {
    return cache->updateCache(alice.get(), name, &entry, &error);
  }
  // The cache's own sources, as its records name them.
  std::string fileSource() { return shown(sourceOf("/a")); }
  FileAccessCacheSourceProvider* sourceOf(const QvbString& name) {
    auto* const found = cache->getCacheSourceProviderForFileType(name);
    log.clear();
    return found;
  }
  // The record of finding a copy fresh that was refreshed at that moment.
  LogLine comparesAges(const QvbDate& refreshed) const {
    return line(1, "Cache updated time = \"" + str(cache->getCacheExpireAsOfDate(refreshed).asString()) +
                       "\", if \"" + str(TestClock::now.asString()) +
                       "\" is greater than cache updated time, we update cache.");
  }

  TempDir temporary;
  TempDir sources;
  const std::string source = sources.write("source.txt", "first");
  const std::string missing = sources / "missing.txt";
  const ReleasedSubject alice{qvbSubjectCreate("alice", QvbString())};
  const ReleasedSubject bob{qvbSubjectCreate("bob", QvbString())};
  RecordingProvider provider;
  QvbString error;
  LogCapture log;
  Released<FileAccessCacheImpl> cache;
  bool leavesFolder = false;

private:
  std::optional<std::string> m_before;
};
