#include "progress.h"

#include <cstdio>
#include <unistd.h>

namespace {
constexpr std::size_t barWidth = 40;
} // namespace

ProgressBar::ProgressBar(const Host& host, std::size_t total, std::size_t shownFrom, const char* things)
    : m_shown(!host.quiet && total >= shownFrom && isatty(STDERR_FILENO) == 1), m_total(total),
      m_things(things) {
  if (!m_shown)
    return;
  draw();
  m_undo.emplace([] { std::fputs("\r\x1b[K", stderr); });
}

void ProgressBar::advanceTo(std::size_t done) {
  const std::size_t before = m_done * 100 / m_total;
  m_done = done;
  if (m_shown && m_done * 100 / m_total != before)
    draw();
}

void ProgressBar::draw() const {
  const std::string filled(m_done * barWidth / m_total, '#');
  std::fprintf(stderr, "\r[%-*s] %zu of %zu %s", static_cast<int>(barWidth), filled.c_str(), m_done, m_total,
               m_things);
}
