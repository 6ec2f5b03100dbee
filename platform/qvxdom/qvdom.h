// XML documents (XML 1.0, Fifth Edition), read and written as a tree.
//
// Text is UTF-8 throughout, whatever encoding a document was read in. Documents come from memory only:
// nothing in a document can make the reader open a path or a URL. Refused, each with a message: a document
// type declaration, XML 1.1, an encoding in which a byte of ASCII may mean something else (the Unicode ones aside),
// element depth over 1,000, an element with over 10,000 attributes, a document over 512 MiB; nor is such a document
// written. No operation recurses over siblings or levels.
//
// Reading keeps text and its order; comments and processing instructions are dropped, and so is white space in
// an element that holds child elements and no other text.
//
// A QvDom owns its nodes; a QvDomNode is a handle by value that is good as long as the document is and until
// it starts or loads another one. A document and its nodes are for one thread at a time.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstddef>
#include <memory>
#include <string>

struct QvDomNodeData;
struct QvDomDocument;
class QvDomElementVisitor;
QVPLATFORM_API bool qvDomVisitElementsOfFile(const QvbString& path, QvDomElementVisitor& visitor,
                                             QvbString* error);

class QVPLATFORM_API QvDomNode {
public:
  QvDomNode() noexcept = default; // a missing node

  // True for a missing node. Reading a missing node gives null texts and missing nodes. Changing a missing
  // node, or a run of text, does nothing.
  bool null() const noexcept { return !m_data; }

  // The element's name; null for a run of text.
  QvbString getName() const;
  // The element's text: its own runs of text, or (deep true) those of everything below it too, in document
  // order; of a run of text, the text. Null when there is none.
  QvbString getValue(bool deep) const;
  // Replaces the element's own runs of text by one after its children; an empty text leaves none.
  void setValue(const QvbString& text);

  // Appends an element. A name that XML does not allow adds nothing and gives a missing node, so that the
  // document stays one that can be written and read.
  QvDomNode addChild(const QvbString& name);
  // The first child, or the node after this one: elements only, or (withText true) runs of text as well.
  QvDomNode getFirstChild(bool withText) const;
  QvDomNode getNextSibling(bool withText) const;

  // Null when there is no such attribute. Names are compared exactly.
  QvbString getAttributeValue(const QvbString& name) const;
  // Appends the attribute, or replaces its value in place. A name that XML does not allow sets nothing.
  void setAttributeValue(const QvbString& name, const QvbString& value);
  // How many attributes there are.
  int getAttributeCount() const noexcept;
  // In document order; false, with nothing written, when the index is out of range. Outputs may be null.
  bool getAttributeNameValue(int index, QvbString* name, QvbString* value) const;

private:
  friend class QvDom;
  friend struct QvDomDocument;
  friend QVPLATFORM_API void qvDomVisitElements(const QvDomNode& node, QvDomElementVisitor& visitor);
  QvDomNode(QvDomDocument* document, QvDomNodeData* data) noexcept : m_document(document), m_data(data) {}

  QvDomDocument* m_document = nullptr;
  QvDomNodeData* m_data = nullptr;
};

class QVPLATFORM_API QvDom {
public:
  // What a document may have at most, where it is read and where it is written.
  static constexpr std::size_t MaxDepth = 1000;                  // levels of elements
  static constexpr std::size_t MaxAttributes = 10000;            // of one element
  static constexpr std::size_t MaxSize = std::size_t{512} << 20; // bytes

  QvDom();
  ~QvDom();
  QvDom(QvDom&& other) noexcept;
  QvDom& operator=(QvDom&& other) noexcept;
  QvDom(const QvDom&) = delete;
  QvDom& operator=(const QvDom&) = delete;

  // Each of these replaces the document; on failure there is none and getErrorMessage() tells why. A name
  // that XML does not allow is a failure, and so is memory that cannot be had ("out of memory" alone, whatever
  // was read or written).
  bool startNewDocument(const QvbString& rootName);
  bool loadFile(const QvbString& path);
  bool loadXML(const QvbString& text);

  QvDomNode getRoot() const noexcept;

  // The node and all below it as text, without a declaration. With layout: two blanks per level and a line
  // feed after each element, an element that holds text on one line; without: no white space. Attributes
  // stand in the order they were set, in double quotes; an empty element closes itself. Line feed, carriage
  // return and tab in attributes (and carriage return in text) become character references, so that any value
  // reads back as it was. What XML cannot carry (controls, U+FFFE and U+FFFF, each byte of broken UTF-8)
  // becomes U+FFFD. The prolog stands before it all as it is. Null for a missing node, and for one that the
  // reader would refuse for its depth, size or attributes.
  QvbString createXML(bool layout, const QvDomNode& node, const QvbString& prolog = {}) const;
  // Replaces the file atomically by an XML declaration (UTF-8) and the text of the node. False with
  // getErrorMessage() on failure, also for what the reader would refuse: the old file is then what np_fio_close()
  // promises.
  bool createFile(const QvbString& path, bool layout, const QvDomNode& node);

  // Why the last start, load or createFile failed: "<file>:<line>:<column>: <reason>" for a malformed file,
  // "<line>:<column>: <reason>" for a malformed text, "<file>: <reason>" for a file that cannot be read or
  // written. Null after a success.
  QvbString getErrorMessage() const;

private:
  // The two steps of loadFile(), for who looks at the bytes in between.
  friend bool qvDomVisitElementsOfFile(const QvbString&, QvDomElementVisitor&, QvbString*);
  QVPLATFORM_HIDDEN bool readFile(const QvbString& path, std::string* content);
  QVPLATFORM_HIDDEN bool loadContent(const QvbString& path, std::string content);

  std::unique_ptr<QvDomDocument> m_document;
  QvbString m_error;
};

// What QvDom writes for a text: between the tags of an element, and between the double quotes of an attribute. A text that
// is written as it is comes back as it is, without a copy.
QVPLATFORM_API QvbString qvDomEscapeText(const QvbString& text);
QVPLATFORM_API QvbString qvDomEscapeAttribute(const QvbString& value);
// What stands between the quotation marks of a string of JSON (RFC 8259) that says what XML would say: U+FFFD for what XML
// cannot carry.
QVPLATFORM_API QvbString qvDomEscapeJson(const QvbString& text);
