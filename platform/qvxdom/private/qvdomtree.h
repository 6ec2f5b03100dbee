// The tree beneath QvDom, its reader and its writer.
//
// Nodes, attributes and texts lie in one arena per document: they are made, never freed, and end with it.
#pragma once

#include "qvxbase/qvbstring.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The name of an element or attribute, one per spelling and document.
class QvDomName {
public:
  explicit QvDomName(std::string_view text) noexcept : m_text(text) {}

  std::string_view view() const noexcept { return m_text; }
  // Made when first asked for and shared from then on.
  const QvbString& asString() const;

private:
  friend class QvDomNames;

  std::string_view m_text;
  mutable QvbString m_shared;
  QvDomName* m_next = nullptr; // of the same bucket
};

// The names of a document, found by hash. They lie in its arena.
class QvDomNames {
public:
  explicit QvDomNames(std::pmr::memory_resource& arena) : m_arena(arena) {}
  ~QvDomNames();
  QvDomNames(const QvDomNames&) = delete;
  QvDomNames& operator=(const QvDomNames&) = delete;

  // Null when there is no such name.
  const QvDomName* find(std::string_view name) const noexcept;
  // A new name's text is copied into the arena unless it lasts as long as the document.
  const QvDomName* intern(std::string_view name, bool lasts);

private:
  static constexpr std::size_t FirstBuckets = 32;

  QvDomName*& bucketOf(std::string_view name) const noexcept;
  void grow();

  std::pmr::memory_resource& m_arena;
  std::array<QvDomName*, FirstBuckets> m_first{};
  QvDomName** m_buckets = m_first.data();
  std::size_t m_bucketCount = FirstBuckets; // a power of two
  std::size_t m_count = 0;
};

struct QvDomAttribute {
  const QvDomName* name;
  std::string_view value;
};

// An element, or (without a name) a run of text. Runs of text are never empty.
struct QvDomNodeData {
  bool isText() const noexcept { return !name; }
  bool holdsText() const noexcept;

  const QvDomName* name = nullptr;
  std::string_view text;
  QvDomNodeData* parent = nullptr;
  QvDomNodeData* firstChild = nullptr;
  QvDomNodeData* lastChild = nullptr;
  QvDomNodeData* next = nullptr;
  QvDomAttribute* attributes = nullptr;
  std::uint32_t attributeCount = 0;
  std::uint32_t attributeCapacity = 0;
};

// What is put into a document is a copy in its arena, unless it is said to last as long as the document does: as a part
// of the text that the document keeps.
struct QvDomDocument {
public:
  QvDomDocument() : m_names(m_arena), m_attributeIndexes(&m_arena) {}
  QvDomDocument(const QvDomDocument&) = delete;
  QvDomDocument& operator=(const QvDomDocument&) = delete;

  QvDomNodeData* root() const noexcept { return m_root; }

  // Keeps the text that the document is read from. The copy that is kept is the one whose parts last.
  std::string_view keep(QvbString text) noexcept;
  std::string_view keep(std::string text) noexcept;

  // The last child of the parent; the root when the parent is null.
  QvDomNodeData* addElement(QvDomNodeData* parent, std::string_view name, bool lasts = false);
  // A run of text after the given child; the first child when that is null.
  void insertText(QvDomNodeData* parent, QvDomNodeData* previous, std::string_view text, bool lasts = false);
  // By one run of text after the element's children, or by none.
  void replaceTexts(QvDomNodeData* element, std::string_view text);

  void reserveAttributes(QvDomNodeData* element, std::size_t count);
  void addAttribute(QvDomNodeData* element, std::string_view name, std::string_view value);
  // A name and a value that last, appended to an element with room for them.
  void addLastingAttribute(QvDomNodeData* element, std::string_view name, std::string_view value);
  // Null when the element has no such attribute.
  QvDomAttribute* findAttribute(const QvDomNodeData* element, std::string_view name);
  std::string_view store(std::string_view text);

private:
  // The places of an element's first attributes: of as many as it had when it was last searched.
  using AttributeIndex = std::pmr::unordered_map<const QvDomName*, std::uint32_t>;

  QvDomAttribute* findIndexedAttribute(const QvDomNodeData* element, std::string_view name);
  template<typename T>
  T* allocate(std::size_t count = 1);
  QvDomNodeData* makeText(std::string_view text, bool lasts);
  static void removeTexts(QvDomNodeData* element) noexcept;
  static void link(QvDomNodeData* parent, QvDomNodeData* previous, QvDomNodeData* node) noexcept;

  // Small documents stay within this block and allocate nothing else.
  alignas(std::max_align_t) std::array<std::byte, 3072> m_block;
  std::pmr::monotonic_buffer_resource m_arena{m_block.data(), m_block.size()};
  QvDomNames m_names;
  // Of the elements with too many attributes to be searched one by one.
  std::pmr::unordered_map<const QvDomNodeData*, AttributeIndex> m_attributeIndexes;
  QvDomNodeData* m_root = nullptr;
  // The text that was read, as a value that is shared or as bytes of the document's own.
  QvbString m_shared;
  std::string m_bytes;
};

// Builds a document from what a reader tells. White space alone counts as text in an element without child elements,
// and in one that holds other text; elsewhere it is layout and is dropped, which only the end of the element can tell.
class QvDomBuilder {
public:
  explicit QvDomBuilder(QvDomDocument& document) : m_document(document) { m_levels.reserve(16); }

  std::size_t depth() const noexcept { return m_levels.size(); }
  QvDomNodeData* open(std::string_view name, bool lasts);
  // A whole run before a child element: all text between two tags, which may be none.
  void addRun(std::string_view text, bool lasts);
  // With the element's last run.
  void close(std::string_view text, bool lasts);

private:
  struct Level {
    QvDomNodeData* element;
    std::size_t firstBlank; // the element's own blank runs are those from here on
    bool holdsText;
  };
  // White space that is text only if the element turns out to hold other text.
  struct Blank {
    QvDomNodeData* previous;
    std::size_t start; // in m_blankText
  };

  void addText(Level& level, std::string_view text, bool lasts);
  std::string_view blankText(std::size_t index) const;
  void dropBlanks(const Level& level);

  QvDomDocument& m_document;
  std::vector<Level> m_levels;
  std::vector<Blank> m_blanks;
  std::string m_blankText;
};

// Whether the text is a name that the reader takes.
bool qvDomIsName(std::string_view text);
// Reads the text into an empty document. The result is empty, or "<line>:<column>: <reason>". Memory that
// cannot be had is std::bad_alloc; nothing else is thrown.
std::string qvDomRead(std::string_view text, QvDomDocument& document);
// As qvDomRead() for a document in the plain form that most have; false, with the document to be thrown away, for every
// other one, whether it is malformed or not. The text is the one that the document keeps, and a zero byte follows it.
bool qvDomReadPlain(std::string_view text, QvDomDocument& document);
// Appends the node and all below it. The result is empty, or why the reader would refuse the text: then some part of it
// is appended.
std::string qvDomWrite(const QvDomNodeData& node, bool layout, std::string& out);

// Why a document is too much, in the words of reader and writer.
std::string qvDomTooDeep();
std::string qvDomTooManyAttributes();
std::string qvDomTooLarge();

constexpr bool qvDomIsScalar(char32_t character) noexcept {
  return character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}
// The Char production of XML 1.0.
constexpr bool qvDomIsChar(char32_t character) noexcept {
  if (character < 0x20)
    return character == '\t' || character == '\n' || character == '\r';
  return qvDomIsScalar(character) && character != 0xFFFE && character != 0xFFFF;
}
// No character: a byte that begins no well-formed UTF-8 sequence.
inline constexpr char32_t qvDomBroken = 0xFFFFFFFF;
// Takes one character, or one broken byte, off the front of the bytes, which are not empty.
char32_t qvDomTakeUtf8(std::string_view& bytes) noexcept;
void qvDomAppendUtf8(char32_t character, std::string& out);
