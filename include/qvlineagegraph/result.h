// What fails in the lineage graph, and the result that carries it.
#pragma once

#include "qvreposres/result.h"

#include <string>

namespace qvlineagegraph {

enum class ErrorKind {
  Unreadable,     // a file cannot be read or written
  Malformed,      // a text is not what it should be: an expression, a saved graph
  NothingMatched, // a selection names no node
  Refused,        // the request is beyond a limit, or not offered for this view
  Stopped,        // the caller asked for it
};

struct Error {
  ErrorKind kind = ErrorKind::Malformed;
  std::string message; // one or several lines for people, without a line feed at the end
};

template<class T>
using Result = qvreposres::Expected<T, Error>;

} // namespace qvlineagegraph
