// What a URL has to look like before anything is sent to it.
#pragma once

#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <array>
#include <string_view>

// Whether the text begins with a scheme of HTTP and names a host. libcurl would complete what is less, and so send a
// request, ticket and all, to a server that nobody named.
inline bool qvIsHttpUrl(std::string_view text) {
  constexpr std::array<std::string_view, 2> prefixes{"http://", "https://"};
  return std::ranges::any_of(prefixes, [&](std::string_view prefix) {
    return qvbEqualsIgnoreCase(text.substr(0, prefix.size()), prefix) && text.size() > prefix.size() &&
           std::string_view("/?#").find(text[prefix.size()]) == std::string_view::npos;
  });
}
