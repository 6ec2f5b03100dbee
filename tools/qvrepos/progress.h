// A progress bar on standard error, drawn only when that is a terminal.
#pragma once

#include "host.h"

#include <cstddef>

class ProgressBar {
public:
  // Not drawn for fewer than `shownFrom` steps, nor when the user wants quiet.
  ProgressBar(const Host& host, std::size_t total, std::size_t shownFrom);
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
