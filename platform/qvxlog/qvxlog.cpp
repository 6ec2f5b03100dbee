#include "qvxlog/qvlog.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbunload.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

namespace {

constexpr int DefaultLevel = QvbOptions::LogLevel.standardNumber();
constexpr auto EveryLevel = static_cast<int>(QvLoggingLevel::Trace);

using Output = std::shared_ptr<spdlog::sinks::sink>;

Output withPattern(Output output) {
  output->set_pattern("%Y-%m-%dT%H:%M:%S.%e %l [%n] %g:%# %v");
  return output;
}

Output standardError() { return withPattern(std::make_shared<spdlog::sinks::stderr_sink_mt>()); }

// Null when the file cannot be written.
Output fileOutput(const QvbString& path) {
  try {
    return withPattern(std::make_shared<spdlog::sinks::basic_file_sink_mt>(std::string(path.view())));
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
  int level = DefaultLevel;
  Output output;
  QvbString levelFault;
  QvbString fileFault;

  LogSettings() {
    readLevel(qvbGetConfigOption(QvbOptions::LogLevel));
    readFile(qvbGetConfigOption(QvbOptions::LogFile));
  }

private:
  void readLevel(const QvbString& option) {
    bool ok = false;
    const int number = option.asInt(&ok);
    if (ok && number >= 1 && number <= 6)
      level = number;
    else if (!option.isNull())
      levelFault = qvbStringFormat("LOG/LEVEL is not a level from 1 to 6: %S", &option);
  }
  void readFile(const QvbString& option) {
    output = option.isEmpty() ? nullptr : fileOutput(option);
    if (!output && !option.isEmpty())
      fileFault = qvbStringFormat("LOG/FILE cannot be opened: %S", &option);
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
    std::unique_lock guard(m_mutex);
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
    const std::lock_guard guard(m_mutex);
    m_sink.swap(sink);
    updateLoggers();
  }

  void setLevel(QvLoggingLevel level) {
    const std::lock_guard guard(m_mutex);
    m_hostLevel = static_cast<int>(level);
    updateLoggers();
  }

  void write(const QvLogRecord& record) {
    std::unique_lock guard(m_mutex);
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
    const std::lock_guard guard(m_mutex);
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

  int outputLevel() const noexcept { return m_hostLevel.value_or(m_optionLevel); }
  int threshold() const noexcept { return m_sink ? EveryLevel : outputLevel(); }
  void updateLoggers() noexcept {
    for (const auto& [category, logger] : m_loggers)
      logger->m_threshold.store(threshold(), std::memory_order_relaxed);
  }

  std::mutex m_mutex;
  std::map<QvbString, std::unique_ptr<QvLogger>> m_loggers;
  std::shared_ptr<QvLogSink> m_sink;
  Output m_output; // null until the options are read
  int m_optionLevel = DefaultLevel;
  std::optional<int> m_hostLevel;
};

QvLogger::QvLogger(const QvbString& category) : m_category(category), m_threshold(DefaultLevel) {}

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
