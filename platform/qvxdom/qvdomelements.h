// The elements of an XML document told one by one, for those who need no tree of it. What counts as a document, and what
// an element says, is what qvdom.h tells.
#pragma once

#include "qvxbase/qvbstring.h"
#include "qvxdom/qvdom.h"

#include <cstddef>
#include <span>
#include <string_view>

struct QvDomElementAttribute {
  std::string_view name;
  std::string_view value;
};

struct QvDomElement {
  std::string_view name;
  std::span<const QvDomElementAttribute> attributes; // in document order
  std::size_t depth = 0;                             // of elements around it, as far as they are told
};

// Implemented by the caller. Called on the thread that reads, in document order.
class QvDomElementVisitor {
public:
  // What the element says is good until the call returns. False for no more elements.
  virtual bool visitElement(const QvDomElement& element) = 0;

protected:
  ~QvDomElementVisitor() = default;
};

// Tell the elements of a document in a text, or in a file. False, with none told and the reason in `error` (which may be
// null), for what QvDom::loadXML() and QvDom::loadFile() would refuse, in their words. What the visitor throws passes.
QVPLATFORM_API bool qvDomVisitElements(const QvbString& text, QvDomElementVisitor& visitor, QvbString* error);
QVPLATFORM_API bool qvDomVisitElementsOfFile(const QvbString& path, QvDomElementVisitor& visitor,
                                             QvbString* error);
// Tells the node, its siblings after it and all elements below them.
QVPLATFORM_API void qvDomVisitElements(const QvDomNode& node, QvDomElementVisitor& visitor);
