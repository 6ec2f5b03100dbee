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
#include <unordered_set>

// The name of an element or attribute, one per spelling and document.
class QvDomName {
public:
  explicit QvDomName(std::string_view text) noexcept : m_text(text) {}

  std::string_view view() const noexcept { return m_text; }
  // Made when first asked for and shared from then on.
  const QvbString& asString() const;

private:
  std::string_view m_text;
  mutable QvbString m_shared;
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

struct QvDomDocument {
public:
  QvDomDocument() : m_names(&m_arena), m_attributeIndexes(&m_arena) {}
  QvDomDocument(const QvDomDocument&) = delete;
  QvDomDocument& operator=(const QvDomDocument&) = delete;

  QvDomNodeData* root() const noexcept { return m_root; }

  // The last child of the parent; the root when the parent is null.
  QvDomNodeData* addElement(QvDomNodeData* parent, std::string_view name);
  // A run of text after the given child; the first child when that is null.
  void insertText(QvDomNodeData* parent, QvDomNodeData* previous, std::string_view text);
  // By one run of text after the element's children, or by none.
  void replaceTexts(QvDomNodeData* element, std::string_view text);

  void reserveAttributes(QvDomNodeData* element, std::size_t count);
  void addAttribute(QvDomNodeData* element, std::string_view name, std::string_view value);
  // Null when the element has no such attribute.
  QvDomAttribute* findAttribute(const QvDomNodeData* element, std::string_view name);
  std::string_view store(std::string_view text);

private:
  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept {
      return std::hash<std::string_view>()(name);
    }
    std::size_t operator()(const QvDomName& name) const noexcept { return (*this)(name.view()); }
  };
  struct NameEqual {
    using is_transparent = void;
    static std::string_view view(std::string_view name) noexcept { return name; }
    static std::string_view view(const QvDomName& name) noexcept { return name.view(); }
    bool operator()(const auto& a, const auto& b) const noexcept { return view(a) == view(b); }
  };

  // The places of an element's first attributes: of as many as it had when it was last searched.
  using AttributeIndex = std::pmr::unordered_map<const QvDomName*, std::uint32_t>;

  const QvDomName* intern(std::string_view name);
  QvDomAttribute* findIndexedAttribute(const QvDomNodeData* element, std::string_view name);
  template<typename T>
  T* allocate(std::size_t count = 1);
  QvDomNodeData* makeText(std::string_view text);
  static void removeTexts(QvDomNodeData* element) noexcept;
  static void link(QvDomNodeData* parent, QvDomNodeData* previous, QvDomNodeData* node) noexcept;

  // Small documents stay within this block and allocate nothing else.
  alignas(std::max_align_t) std::array<std::byte, 3072> m_block;
  std::pmr::monotonic_buffer_resource m_arena{m_block.data(), m_block.size()};
  std::pmr::unordered_set<QvDomName, NameHash, NameEqual> m_names;
  // Of the elements with too many attributes to be searched one by one.
  std::pmr::unordered_map<const QvDomNodeData*, AttributeIndex> m_attributeIndexes;
  QvDomNodeData* m_root = nullptr;
};

// Whether the text is a name that the reader takes.
bool qvDomIsName(std::string_view text);
// Reads the text into an empty document. The result is empty, or "<line>:<column>: <reason>". Memory that
// cannot be had is std::bad_alloc; nothing else is thrown.
std::string qvDomRead(std::string_view text, QvDomDocument& document);
// Appends the node and all below it. The result is empty, or why the reader would refuse the text: then some part of it
// is appended.
std::string qvDomWrite(const QvDomNodeData& node, bool layout, std::string& out);

// Why a document is too much, in the words of reader and writer.
std::string qvDomTooDeep();
std::string qvDomTooManyAttributes();
std::string qvDomTooLarge();

// No character: a byte that begins no well-formed UTF-8 sequence.
inline constexpr char32_t qvDomBroken = 0xFFFFFFFF;
// Takes one character, or one broken byte, off the front of the bytes, which are not empty.
char32_t qvDomTakeUtf8(std::string_view& bytes) noexcept;
