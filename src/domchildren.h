// What is asked of an XML document and of the children of its elements.
#pragma once

#include "qvxdom/qvdom.h"

#include <string_view>

// Whether the document was not loaded because memory was short, which tells nothing of what it holds.
inline bool lackedMemory(const QvDom& document) {
  return document.getErrorMessage().view() == "out of memory";
}

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
