// The zone that a test needs, whatever the one that the program was started in: a name of the system's, or rules of its own.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include <time.h>

class Zone {
public:
  explicit Zone(const char* name) {
    if (const char* before = std::getenv("TZ"))
      m_before = before;
    set(name);
  }
  ~Zone() { set(m_before ? m_before->c_str() : nullptr); }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

private:
  static void set(const char* name) {
    if (name)
      setenv("TZ", name, 1);
    else
      unsetenv("TZ");
    tzset();
  }
  std::optional<std::string> m_before;
};
