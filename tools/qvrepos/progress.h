// A progress bar on standard error, drawn only when that is a terminal; it is gone when the work ends or is interrupted.
#pragma once

#include "host.h"
#include "interrupt.h"

#include <cstddef>
#include <optional>

class ProgressBar {
public:
  // Not drawn for fewer than `shownFrom` steps, nor when the user wants quiet. `things` is what a step deals with.
  ProgressBar(const Host& host, std::size_t total, std::size_t shownFrom, const char* things = "files");
  void step() { advanceTo(m_done + 1); }
  void advanceTo(std::size_t done);

private:
  void draw() const;

  bool m_shown;
  std::size_t m_total;
  const char* m_things;
  std::size_t m_done = 0;
  std::optional<Interrupts::Undo> m_undo;
};
