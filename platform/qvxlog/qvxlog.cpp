#include "qvxlog/qvlog.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbthreads.h"
#include "qvxbase/qvbunload.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <string>

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

namespace {

constexpr int defaultLevel = QvbOptions::LogLevel.standardNumber();
constexpr auto everyLevel = static_cast<int>(QvLoggingLevel::Trace);

using Output = std::shared_ptr<spdlog::sinks::sink>;

Output withPattern(Output output) {
  output->set_pattern("%Y-%m-%dT%H:%M:%S.%e %l [%n] %g:%# %v");
  return output;
}

Output standardError() { return withPattern(std::make_shared<spdlog::sinks::stderr_sink_mt>()); }

// Null when the file cannot be written, or its folder is not there: the sink would make it, and a mistyped name would go
// unnoticed.
Output fileOutput(const QvbString& path) {
  const std::string file(path.view());
  std::error_code ignored;
  const auto folder = std::filesystem::path(file).parent_path();
  if (!folder.empty() && !std::filesystem::is_directory(folder, ignored))
    return nullptr;
  try {
    return withPattern(std::make_shared<spdlog::sinks::basic_file_sink_mt>(file));
  } catch (const spdlog::spdlog_ex&) {
    return nullptr;
  }
}

spdlog::level::level_enum spdlogLevel(QvLoggingLevel level) noexcept {
  return static_cast<spdlog::level::level_enum>(std::clamp(static_cast<int>(level), 1, 6) - 1);
}

void writeTo(spdlog::sinks::sink& output, const QvLogRecord& record) {
  // One record is one line: a text cannot pass for another record.
  const QvbString category = qvbEscapeControls(record.category.view());
  const QvbString source = qvbEscapeControls(record.source.view());
  const QvbString text = qvbEscapeControls(record.text.view());
  try {
    output.log(spdlog::details::log_msg({source.asCstr(), record.line, ""}, category.view(),
                                        spdlogLevel(record.level), text.view()));
    output.flush();
  } catch (const spdlog::spdlog_ex&) {
    // A full disk costs the record, not the operation that wanted to tell of it.
  }
}

// What the options say, with the texts for what they say wrong.
struct LogSettings {
  int level = defaultLevel;
  Output output;
  QvbString levelFault;
  QvbString fileFault;

  LogSettings() {
    readLevel(qvbGetConfigNumber(QvbOptions::LogLevel));
    readFile(qvbGetConfigOption(QvbOptions::LogFile));
  }

private:
  void readLevel(const QvbOptionNumber& option) {
    level = option.value;
    if (!option.refused.isNull())
      levelFault = qvbStringFormat("LOG/LEVEL is not a level from 1 to 6: %s", option.refused);
  }
  void readFile(const QvbString& option) {
    output = option.isEmpty() ? nullptr : fileOutput(option);
    if (!output && !option.isEmpty())
      fileFault = qvbStringFormat("LOG/FILE cannot be opened: %s", option);
    if (!output)
      output = standardError();
  }
};

} // namespace

struct QvLogRegistry {
  static QvLogRegistry& instance() {
    static QvLogRegistry& registry = qvbUntilUnload<QvLogRegistry>();
    return registry;
  }

  QvLogger* logger(const QvbString& category) {
    QvbMutexGuard guard(m_mutex);
    if (!m_output) {
      guard.unlock();
      readOptions();
      guard.lock();
    }
    const auto known = m_loggers.find(category);
    if (known != m_loggers.end())
      return known->second.get();
    std::unique_ptr<QvLogger> made(new QvLogger(category));
    made->m_threshold = threshold();
    return m_loggers.emplace(category, std::move(made)).first->second.get();
  }

  void setSink(std::shared_ptr<QvLogSink> sink) {
    // The former sink ends outside the lock: its destructor may log.
    const QvbMutexGuard guard(m_mutex);
    m_sink.swap(sink);
    updateLoggers();
  }

  void setLevel(QvLoggingLevel level) {
    const QvbMutexGuard guard(m_mutex);
    m_hostLevel = static_cast<int>(level);
    updateLoggers();
  }

  void write(const QvLogRecord& record) {
    QvbMutexGuard guard(m_mutex);
    const auto sink = m_sink;
    const Output output = static_cast<int>(record.level) >= outputLevel() ? m_output : nullptr;
    guard.unlock();
    if (sink)
      sink->record(record);
    else if (output)
      writeTo(*output, record);
  }

private:
  // The options are read without the lock, and come back here when their file is to be complained of; by then
  // the file has been read, so that the second time goes through.
  void readOptions() {
    const LogSettings settings;
    if (configure(settings)) {
      logFault(settings.levelFault);
      logFault(settings.fileFault);
    }
  }
  // Whether these are the settings that count: the first ones do.
  bool configure(const LogSettings& settings) {
    const QvbMutexGuard guard(m_mutex);
    if (m_output)
      return false;
    m_output = settings.output;
    m_optionLevel = settings.level;
    return true;
  }
  static void logFault(const QvbString& fault) {
    if (!fault.isNull())
      QvLog("QV.Base.Log", "platform/qvxlog/qvxlog").error("%s", fault);
  }

  int outputLevel() const noexcept QVB_REQUIRES(m_mutex) { return m_hostLevel.value_or(m_optionLevel); }
  int threshold() const noexcept QVB_REQUIRES(m_mutex) { return m_sink ? everyLevel : outputLevel(); }
  void updateLoggers() noexcept QVB_REQUIRES(m_mutex) {
    for (const auto& [category, logger] : m_loggers)
      logger->m_threshold.store(threshold(), std::memory_order_relaxed);
  }

  QvbMutex m_mutex;
  std::map<QvbString, std::unique_ptr<QvLogger>> m_loggers QVB_GUARDED_BY(m_mutex);
  std::shared_ptr<QvLogSink> m_sink QVB_GUARDED_BY(m_mutex);
  Output m_output QVB_GUARDED_BY(m_mutex); // null until the options are read
  int m_optionLevel QVB_GUARDED_BY(m_mutex) = defaultLevel;
  std::optional<int> m_hostLevel QVB_GUARDED_BY(m_mutex);
};

QvLogger::QvLogger(const QvbString& category) : m_category(category), m_threshold(defaultLevel) {}

void QvLogger::write(QvLoggingLevel level, const char* source, int line, const char* format,
                     std::span<const QvbFormatArg> args) noexcept {
  try {
    QvLogRegistry::instance().write({m_category, level, source, line, qvbStringFormatArgs(format, args)});
  } catch (const std::bad_alloc&) {
    // As with a full disk, only the record is lost.
  }
}

QvLogger* qvlogGetLogger(const char* category) {
  return QvLogRegistry::instance().logger(category ? category : "");
}

void qvlogSetSink(std::shared_ptr<QvLogSink> sink) { QvLogRegistry::instance().setSink(std::move(sink)); }

void qvlogSetLevel(QvLoggingLevel level) { QvLogRegistry::instance().setLevel(level); }
