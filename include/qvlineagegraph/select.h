// Selections: the part of a view that names, wildcards and graph operators describe.
//
// An expression is a name with what is wanted around it:
//   dw.customers       what bears the name
//   +dw.customers      and all that lies upstream         2+dw.customers  up to two edges of the view away
//   dw.customers+      and all that lies downstream       dw.customers+3  up to three
//   2+dw.customers+3   both
// A name is matched from the end of the data path, at a dot ("customers", "dw.customers"); a job's at a slash, against its
// name and its path, with or without extension. A data source stands for its tables. * is any run of characters, and a
// backslash takes the character after it as it is. type:Table stands for all nodes of a type.
#pragma once

#include "qvlineagegraph/result.h"
#include "qvlineagegraph/view.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

struct Selection {
  std::vector<std::string> select;  // what any of them describes; none: everything
  std::vector<std::string> exclude; // less what any of these describes
};

struct Selected {
  View view;
  std::vector<NodeIndex>
      named; // the nodes that bear the names of `select`, as far as they are shown; ascending
  // For each expression that matches nothing, where others of `select` do, what an error would say: those of `select` in
  // their order, then those of `exclude`.
  std::vector<std::string> unmatched;
};

// An error for an expression that is none, and, with the nearest names, when `select` matches nothing. What `exclude`
// matches may be nothing.
QVLINEAGEGRAPH_API Result<Selected> select(const View& view, const Selection& selection);

// The names of the view that are most like what was asked for, the nearest first.
QVLINEAGEGRAPH_API std::vector<std::string> nearestNames(const View& view, std::string_view name,
                                                         std::size_t count = 5);

// The expression that matches this name as it is: every character that means something in an expression is escaped.
QVLINEAGEGRAPH_API std::string quotedName(std::string_view name);

} // namespace qvlineagegraph
