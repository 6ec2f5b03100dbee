#include "wildcard.h"

#include "qvxbase/qvbstring.h"

#include <algorithm>

namespace qvlineagegraph {

namespace {

bool startsWith(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && qvbEqualsIgnoreCase(text.substr(0, start.size()), start);
}

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && qvbEqualsIgnoreCase(text.substr(text.size() - end.size()), end);
}

// What follows the first occurrence of the run, which is not empty; a null view where there is none.
std::string_view after(std::string_view text, std::string_view run) {
  for (; text.size() >= run.size(); text.remove_prefix(1))
    if (startsWith(text, run))
      return text.substr(run.size());
  return {};
}

} // namespace

Wildcard::Wildcard(std::string_view pattern) {
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '*') {
      m_runs.emplace_back();
      continue;
    }
    if (pattern[i] == '\\' && i + 1 < pattern.size())
      ++i;
    m_runs.back() += pattern[i];
  }
}

// Each run in between is taken where it comes first, which leaves the most for those after it.
bool Wildcard::matches(std::string_view text) const {
  const std::string& first = m_runs.front();
  const std::string& last = m_runs.back();
  if (m_runs.size() == 1)
    return qvbEqualsIgnoreCase(text, first);
  if (text.size() < first.size() + last.size() || !startsWith(text, first) || !endsWith(text, last))
    return false;
  text.remove_prefix(first.size());
  text.remove_suffix(last.size());
  return std::all_of(m_runs.begin() + 1, m_runs.end() - 1, [&](const std::string& run) {
    if (run.empty())
      return true;
    text = after(text, run);
    return text.data() != nullptr;
  });
}

bool Wildcard::matchesEndOf(std::string_view text, char separator) const {
  if (m_runs.size() == 1) {
    const std::string& name = m_runs.front();
    return endsWith(text, name) &&
           (text.size() == name.size() || text[text.size() - name.size() - 1] == separator);
  }
  for (;;) {
    if (matches(text))
      return true;
    const auto next = text.find(separator);
    if (next == std::string_view::npos)
      return false;
    text.remove_prefix(next + 1);
  }
}

} // namespace qvlineagegraph
