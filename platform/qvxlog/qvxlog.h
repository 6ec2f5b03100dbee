// Loggers.
//
// One logger per category, for the life of the process. Every record carries category, level, source name,
// line and text. Records at or above the threshold go to standard error; the options "LOG/LEVEL" (1 to 6,
// default 4) and "LOG/FILE" (a path) change that and are read when the first logger is made. A disabled level
// formats nothing. All functions may be called from any thread.
#pragma once

#include "qvxbase/qvbformat.h"

#include <atomic>
#include <memory>

enum class QvLoggingLevel : int {
  Trace = 1, // step by step
  Lifecycle = 2,
  Success = 3,  // worth a note
  Anomaly = 4,  // survived
  Error = 5,    // returned to the caller
  Critical = 6, // an object goes on without its lock
};

struct QvLogRecord {
  QvbString category;
  QvLoggingLevel level;
  QvbString source;
  int line;
  QvbString text;
};

// Receives records as they are, on the thread that logs; it must not install another sink.
class QVPLATFORM_API QvLogSink {
public:
  virtual ~QvLogSink() = default;
  virtual void record(const QvLogRecord& record) = 0;
};

class QVPLATFORM_API QvLogger {
public:
  bool isEnabled(QvLoggingLevel level) const noexcept {
    return static_cast<int>(level) >= m_threshold.load(std::memory_order_relaxed);
  }
  // Formats as qvbStringFormat does and writes one record when the level is enabled. A record that there is no memory
  // for is lost, and what logs goes on.
  template<class... Args>
  void logEvent(QvLoggingLevel level, const char* source, int line, const char* format,
                const Args&... args) noexcept {
    if (!isEnabled(level))
      return;
    const std::initializer_list<QvbFormatArg> list{QvbFormatArg(args)...};
    write(level, source, line, format, {list.begin(), list.size()});
  }

private:
  friend struct QvLogRegistry;
  explicit QvLogger(const QvbString& category);
  void write(QvLoggingLevel level, const char* source, int line, const char* format,
             std::span<const QvbFormatArg> args) noexcept;

  QvbString m_category;
  std::atomic<int> m_threshold;
};

// Never null; the same logger for the same category. It lives as long as the process.
QVPLATFORM_API QvLogger* qvlogGetLogger(const char* category);
// Replaces the output: while a sink is installed, it receives every record of every level and nothing goes to
// standard error or the file. Null goes back to the output. The registry keeps the sink alive while a record
// is being handed over.
QVPLATFORM_API void qvlogSetSink(std::shared_ptr<QvLogSink> sink);
// Changes the threshold of the output for every logger, over the option.
QVPLATFORM_API void qvlogSetLevel(QvLoggingLevel level);
