// Walks over the children of an XML element.
#pragma once

#include "qvxdom/qvdom.h"

#include <string_view>

// Whether the element has this name, without regard to case.
inline bool isNamed(const QvDomNode& element, std::string_view name) {
  return qvbEqualsIgnoreCase(element.getName().view(), name);
}

// The first child element of this name that is wanted; a missing node when there is none.
template<class Filter>
QvDomNode findChildNamed(const QvDomNode& parent, std::string_view name, const Filter& isWanted) {
  QvDomNode child = parent.getFirstChild(false);
  while (!child.null() && !(isNamed(child, name) && isWanted(child)))
    child = child.getNextSibling(false);
  return child;
}
inline QvDomNode findChildNamed(const QvDomNode& parent, std::string_view name) {
  return findChildNamed(parent, name, [](const QvDomNode&) { return true; });
}
