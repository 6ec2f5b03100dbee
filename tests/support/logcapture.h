// Collects every log record while it lives, of every category and level.
#pragma once

#include "qvxlog/qvxlog.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

struct LogLine {
  std::string category;
  int level;
  std::string source;
  std::string text;

  bool operator==(const LogLine&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << '{' << line.category << ", " << line.level << ", " << line.source << ", \"" << line.text
             << "\"}";
}

class LogCapture {
public:
  LogCapture() : m_sink(std::make_shared<Sink>()) { qvlogSetSink(m_sink); }
  ~LogCapture() { qvlogSetSink(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> lines() const {
    const std::lock_guard guard(m_sink->mutex);
    return m_sink->lines;
  }
  // The lines of one category, in order.
  std::vector<LogLine> lines(const std::string& category) const {
    auto all = lines();
    std::erase_if(all, [&](const LogLine& line) { return line.category != category; });
    return all;
  }
  void clear() {
    const std::lock_guard guard(m_sink->mutex);
    m_sink->lines.clear();
  }

private:
  struct Sink : QvLogSink {
    void record(const QvLogRecord& record) override {
      const std::lock_guard guard(mutex);
      lines.push_back({std::string(record.category.view()), static_cast<int>(record.level),
                       std::string(record.source.view()), std::string(record.text.view())});
    }
    std::mutex mutex;
    std::vector<LogLine> lines;
  };
  std::shared_ptr<Sink> m_sink;
};
