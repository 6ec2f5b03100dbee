// Names with wildcards.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

// A pattern in which * is any run of characters and a backslash takes the character after it as it is. Compared without
// regard to the case of ASCII letters.
class Wildcard {
public:
  Wildcard() = default;
  explicit Wildcard(std::string_view pattern);

  bool matches(std::string_view text) const;
  // Whether it matches the text, or what follows one of its separators.
  bool matchesEndOf(std::string_view text, char separator) const;

private:
  std::vector<std::string> m_runs{1}; // between the wildcards; one where there is none
};

} // namespace qvlineagegraph
