// Logging in one line: what a class or source logs with.
//
//   const QvLog m_log{"QV.FileAccessCache", "src/qvfilecacheimpl"};
//   m_log.trace("getCacheFilename using '%s'", key);
//
// The line of a record is the call's own. A format is checked while it is compiled: a "%" that begins no conversion of
// qvbformat.h, and more or fewer arguments than conversions, are errors. A text of any kind (QvbString, std::string_view,
// const char*) goes under "%s". A disabled level formats nothing; arguments that cost something to make are worth a look
// at isEnabled() first. Any thread may use one.
#pragma once

#include "qvxlog/qvxlog.h"

#include <concepts>
#include <type_traits>

// Made of a literal where a record is logged.
template<class... Args>
class QvLogFormat {
public:
  // The line by the compiler's own name for it: clang 14 has no std::source_location.
  template<class Text>
  requires std::convertible_to<const Text&, const char*>
  consteval QvLogFormat(const Text& text, int line = __builtin_LINE()) : m_text(text), m_line(line) {
    if (qvbFormatArguments(m_text) != static_cast<int>(sizeof...(Args)))
      argumentsAndConversionsDiffer();
  }

  constexpr const char* text() const noexcept { return m_text; }
  constexpr int line() const noexcept { return m_line; }

private:
  static void argumentsAndConversionsDiffer(); // never defined: the compiler names it where a format is wrong

  const char* m_text;
  int m_line;
};

class QvLog {
public:
  // Both texts are literals: the logger's category, and the source's path from the root without extension.
  QvLog(const char* category, const char* source) : m_logger(qvlogGetLogger(category)), m_source(source) {}

  bool isEnabled(QvLoggingLevel level) const noexcept { return m_logger->isEnabled(level); }

  template<class... Args>
  void trace(QvLogFormat<std::type_identity_t<Args>...> format, const Args&... args) const noexcept {
    logAt(QvLoggingLevel::Trace, format, args...);
  }
  template<class... Args>
  void lifecycle(QvLogFormat<std::type_identity_t<Args>...> format, const Args&... args) const noexcept {
    logAt(QvLoggingLevel::Lifecycle, format, args...);
  }
  template<class... Args>
  void success(QvLogFormat<std::type_identity_t<Args>...> format, const Args&... args) const noexcept {
    logAt(QvLoggingLevel::Success, format, args...);
  }
  template<class... Args>
  void anomaly(QvLogFormat<std::type_identity_t<Args>...> format, const Args&... args) const noexcept {
    logAt(QvLoggingLevel::Anomaly, format, args...);
  }
  template<class... Args>
  void error(QvLogFormat<std::type_identity_t<Args>...> format, const Args&... args) const noexcept {
    logAt(QvLoggingLevel::Error, format, args...);
  }
  template<class... Args>
  void critical(QvLogFormat<std::type_identity_t<Args>...> format, const Args&... args) const noexcept {
    logAt(QvLoggingLevel::Critical, format, args...);
  }
  // A text that only turns up while the program runs and is taken for a format without arguments: its conversions print
  // as they stand.
  void unchecked(QvLoggingLevel level, const QvbString& format, int line = __builtin_LINE()) const noexcept {
    m_logger->logEvent(level, m_source, line, format.asCstr());
  }

private:
  template<class... Args>
  void logAt(QvLoggingLevel level, QvLogFormat<std::type_identity_t<Args>...> format,
             const Args&... args) const noexcept {
    if (isEnabled(level)) [[unlikely]]
      write(level, format, args...);
  }
  // Apart from who logs, so that a disabled record costs its caller a look at the level and nothing of its registers.
  template<class... Args>
  [[gnu::noinline, gnu::cold]] void write(QvLoggingLevel level,
                                          QvLogFormat<std::type_identity_t<Args>...> format,
                                          const Args&... args) const noexcept {
    m_logger->logEvent(level, m_source, format.line(), format.text(), args...);
  }

  QvLogger* m_logger;
  const char* m_source;
};
