// A progress bar on standard error, drawn only when that is a terminal.
#pragma once

#include "host.h"

#include <cstddef>

class ProgressBar {
public:
  ProgressBar(const Host& host, std::size_t total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void step();

private:
  void draw() const;

  bool m_shown;
  std::size_t m_total;
  std::size_t m_done = 0;
};
