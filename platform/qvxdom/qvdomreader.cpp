#include "qvxbase/private/qvbperthread.h"
#include "qvxbase/qvbunload.h"
#include "qvxdom/private/qvdomscan.h"
#include "qvxdom/private/qvdomtree.h"
#include "qvxdom/qvdom.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/DefaultPanicHandler.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLChar.hpp>
#include <xercesc/util/XMLInitializer.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <utility>

namespace {

namespace xc = xercesc;
using Utf16 = std::basic_string_view<XMLCh>;

bool isHighSurrogate(XMLCh unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(XMLCh unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

std::size_t asciiLength(Utf16 text) {
  std::size_t length = 0;
  for (std::uint64_t four = 0; length + 4 <= text.size(); length += 4) {
    std::memcpy(&four, text.data() + length, sizeof four);
    if (four & 0xFF80FF80FF80FF80u)
      break;
  }
  while (length < text.size() && text[length] < 0x80)
    ++length;
  return length;
}

void appendAscii(Utf16 text, std::string& out) {
  const auto size = out.size();
  out.resize(size + text.size());
  std::transform(text.begin(), text.end(), out.begin() + static_cast<std::ptrdiff_t>(size),
                 [](XMLCh unit) { return static_cast<char>(unit); });
}

// Takes the character at the front, which is not ASCII. The parser admits no lone surrogate.
char32_t takeUtf16(Utf16& text) {
  char32_t character = text.front();
  text.remove_prefix(1);
  if (isHighSurrogate(static_cast<XMLCh>(character)) && !text.empty() && isLowSurrogate(text.front())) {
    character = 0x10000 + ((character - 0xD800) << 10) + (text.front() - char32_t{0xDC00});
    text.remove_prefix(1);
  }
  return character;
}

void appendUtf8(Utf16 text, std::string& out) {
  while (true) {
    const auto ascii = asciiLength(text);
    appendAscii(text.substr(0, ascii), out);
    text.remove_prefix(ascii);
    if (text.empty())
      return;
    qvDomAppendUtf8(takeUtf16(text), out);
  }
}

std::string toUtf8(const XMLCh* text) {
  std::string utf8;
  if (text)
    appendUtf8(Utf16(text), utf8);
  return utf8;
}

std::basic_string<XMLCh> widen(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

std::string located(XMLFileLoc line, XMLFileLoc column, std::string_view reason) {
  const auto from1 = [](XMLFileLoc place) { return std::to_string(std::max<XMLFileLoc>(1, place)); };
  return from1(line) + ':' + from1(column) + ": " + std::string(reason);
}

// Leaves the parser in the middle of a document.
struct Refusal {
  std::string message;
};

// Builds a document from the parser's events. Text between two tags is one run, whatever comments, sections and
// references it is made of.
class Builder : public xc::DefaultHandler {
public:
  void build(QvDomDocument& document) {
    m_document = &document;
    m_builder.emplace(document);
    m_text.clear();
    m_half = 0;
  }

  void setDocumentLocator(const xc::Locator* locator) override { m_locator = locator; }

  void startElement(const XMLCh*, const XMLCh*, const XMLCh* name,
                    const xc::Attributes& attributes) override {
    if (m_builder->depth() == QvDom::MaxDepth)
      throw Refusal{located(m_locator->getLineNumber(), m_locator->getColumnNumber(), qvDomTooDeep())};
    if (m_builder->depth() != 0) {
      m_builder->addRun(m_text, false);
      m_text.clear();
    }
    addAttributes(m_builder->open(scratch(m_name, name), false), attributes);
  }

  void endElement(const XMLCh*, const XMLCh*, const XMLCh*) override {
    m_builder->close(m_text, false);
    m_text.clear();
  }

  // The parser may hand over the halves of a character one by one.
  void characters(const XMLCh* text, XMLSize_t length) override {
    Utf16 units(text, length);
    if (m_half && !units.empty()) {
      const std::array whole{m_half, units.front()};
      appendUtf8(Utf16(whole.data(), whole.size()), m_text);
      units.remove_prefix(1);
      m_half = 0;
    }
    if (!units.empty() && isHighSurrogate(units.back())) {
      m_half = units.back();
      units.remove_suffix(1);
    }
    appendUtf8(units, m_text);
  }

  void error(const xc::SAXParseException& error) override { fatalError(error); }
  void fatalError(const xc::SAXParseException& error) override {
    throw Refusal{located(error.getLineNumber(), error.getColumnNumber(), toUtf8(error.getMessage()))};
  }

private:
  static std::string_view scratch(std::string& buffer, const XMLCh* text) {
    buffer.clear();
    appendUtf8(Utf16(text), buffer);
    return buffer;
  }

  void addAttributes(QvDomNodeData* element, const xc::Attributes& attributes) {
    const auto count = attributes.getLength();
    m_document->reserveAttributes(element, count);
    for (XMLSize_t i = 0; i < count; ++i)
      m_document->addAttribute(element, scratch(m_name, attributes.getQName(i)),
                               scratch(m_value, attributes.getValue(i)));
  }

  QvDomDocument* m_document = nullptr;
  const xc::Locator* m_locator = nullptr;
  std::optional<QvDomBuilder> m_builder;
  std::string m_text; // of the run that is being read
  XMLCh m_half = 0;   // of the character that follows it
  std::string m_name;
  std::string m_value;
};

// A failure has to be the parser's own: it stops the parser from tidying up what is half made.
void* parserMemory(std::size_t size) {
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    throw xc::OutOfMemoryException();
  }
}

// The memory of the parser's library. What the library needs to start is there before it does, because it can neither
// take half a start back nor start again.
class LibraryMemory : public xc::MemoryManager {
public:
  // While the library starts. What is given back stays in the room.
  void* allocate(XMLSize_t size) override {
    const auto taken = (size + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
    if (!m_isStarting || taken < size || taken > RoomSize - m_used)
      return parserMemory(size);
    return m_room.get() + std::exchange(m_used, m_used + taken);
  }
  void deallocate(void* memory) override {
    const std::less<const void*> isBefore;
    if (isBefore(memory, m_room.get()) || !isBefore(memory, m_room.get() + RoomSize))
      ::operator delete(memory);
  }
  xc::MemoryManager* getExceptionMemoryManager() override { return this; }
  void endStart() noexcept { m_isStarting = false; }

private:
  // A start takes about 750,000 bytes; what is left is never touched.
  static constexpr std::size_t RoomSize = std::size_t{2} << 20;

  std::unique_ptr<std::byte[]> m_room = std::make_unique_for_overwrite<std::byte[]>(RoomSize);
  std::size_t m_used = 0;
  bool m_isStarting = true;
};

// Two objects of the library's static data do not come from its memory manager. A failure to get one is reported as this
// panic, and the data can be made again.
class StaticData : public xc::DefaultPanicHandler {
public:
  void panic(const PanicReasons reason) override {
    if (reason != Panic_AllStaticInitErr)
      DefaultPanicHandler::panic(reason);
    m_isWhole = false;
  }
  void complete() {
    if (!std::exchange(m_isWhole, true))
      Maker::make();
    if (!m_isWhole)
      throw std::bad_alloc();
  }
  bool isWhole() const noexcept { return m_isWhole; }

private:
  struct Maker : xc::XMLInitializer {
    static void make() { initializeStaticData(); }
  };

  bool m_isWhole = true;
};

class ParserLibrary {
public:
  ParserLibrary() {
    xc::XMLPlatformUtils::Initialize(xc::XMLUni::fgXercescDefaultLocale, nullptr, &m_staticData, &m_memory);
  }
  // What is not whole cannot be taken apart either.
  ~ParserLibrary() {
    if (m_staticData.isWhole())
      xc::XMLPlatformUtils::Terminate();
  }
  ParserLibrary(const ParserLibrary&) = delete;
  ParserLibrary& operator=(const ParserLibrary&) = delete;

  // To be tried again after an exception.
  bool start() {
    m_staticData.complete();
    m_memory.endStart();
    return true;
  }

private:
  LibraryMemory m_memory;
  StaticData m_staticData;
};

// The memory of one reader. The parser forgets parts of it when an allocation fails; here they end with the
// reader.
class ReaderMemory : public xc::MemoryManager {
public:
  ReaderMemory() = default;
  ~ReaderMemory() override {
    for (auto* block = m_blocks.next; block != &m_blocks;)
      ::operator delete(std::exchange(block, block->next));
  }
  ReaderMemory(const ReaderMemory&) = delete;
  ReaderMemory& operator=(const ReaderMemory&) = delete;

  void* allocate(XMLSize_t size) override {
    auto* block = new (parserMemory(sizeof(Block) + size)) Block{m_blocks.next, &m_blocks};
    block->next->previous = block;
    m_blocks.next = block;
    return block + 1;
  }
  void deallocate(void* memory) override {
    if (memory)
      remove(static_cast<Block*>(memory) - 1);
  }
  // Exceptions may outlive the reader.
  xc::MemoryManager* getExceptionMemoryManager() override { return xc::XMLPlatformUtils::fgMemoryManager; }

private:
  struct alignas(std::max_align_t) Block {
    Block* next;
    Block* previous;
  };

  static void remove(Block* block) {
    block->previous->next = block->next;
    block->next->previous = block->previous;
    ::operator delete(block);
  }

  Block m_blocks{&m_blocks, &m_blocks};
};

// The well-formedness scanner is a safety rule: the others open external entities whatever the features say.
std::unique_ptr<xc::SAX2XMLReader> makeParser(ReaderMemory& memory) {
  std::unique_ptr<xc::SAX2XMLReader> parser(xc::XMLReaderFactory::createXMLReader(&memory));
  parser->setProperty(xc::XMLUni::fgXercesScannerName, const_cast<XMLCh*>(xc::XMLUni::fgWFXMLScanner));
  parser->setFeature(xc::XMLUni::fgSAX2CoreNameSpaces, false);
  parser->setFeature(xc::XMLUni::fgSAX2CoreValidation, false);
  parser->setFeature(xc::XMLUni::fgXercesSchema, false);
  parser->setFeature(xc::XMLUni::fgXercesLoadExternalDTD, false);
  parser->setFeature(xc::XMLUni::fgXercesDisableDefaultEntityResolution, true);
  return parser;
}

class Reader {
public:
  Reader() : m_parser(makeParser(m_memory)) {
    m_parser->setContentHandler(&m_builder);
    m_parser->setErrorHandler(&m_builder);
  }

  // Empty, or why the document is refused. After an exception the reader is unfit for use.
  std::string read(std::string_view text, const QvDomScan& scan, QvDomDocument& document) {
    ++m_documents;
    m_bytes += text.size();
    text.remove_prefix(scan.byteOrderMark);
    xc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()), text.size(),
                                 xc::XMLUni::fgZeroLenString, false, &m_memory);
    source.setCopyBufToStream(false);
    source.setEncoding(widen(scan.encoding).c_str());
    m_builder.build(document);
    std::string refused;
    try {
      m_parser->parse(source);
    } catch (const Refusal& refusal) {
      refused = refusal.message;
    }
    // Behind the root element the parser takes a character that breaks off for the document's end.
    auto broken = scan.encoding == "UTF-8" ? qvDomFindBrokenUtf8(text) : std::string();
    return broken.empty() ? refused : broken;
  }

  // The parser keeps the room that the largest document needed, and pools that only grow; a new one costs no more
  // than the reading of some thousand bytes.
  bool isWornOut() const { return m_documents >= 10000 || m_bytes >= std::size_t{4} << 20; }

private:
  ReaderMemory m_memory;
  Builder m_builder;
  std::unique_ptr<xc::SAX2XMLReader> m_parser;
  std::size_t m_documents = 0;
  std::size_t m_bytes = 0;
};

// Each thread's own, which ends before the parser's library does.
std::unique_ptr<Reader>& keptReader() {
  static ParserLibrary& library = qvbUntilUnload<ParserLibrary>();
  [[maybe_unused]] static const bool isStarted = library.start();
  static auto& readers = qvbUntilUnload<QvbPerThread<std::unique_ptr<Reader>>>();
  return readers.get();
}

// The reader is out of its place while it reads: one that an exception leaves in whatever state is thrown away.
std::string readWithKeptReader(std::string_view text, const QvDomScan& scan, QvDomDocument& document) {
  auto& kept = keptReader();
  auto reader = kept ? std::move(kept) : std::make_unique<Reader>();
  auto failure = reader->read(text, scan, document);
  if (!reader->isWornOut())
    kept = std::move(reader);
  return failure;
}

// As the parser sees them, so that what is written can be read.
bool isNameChar(char32_t character, bool first) {
  if (character >= 0x10000)
    return character <= 0xEFFFF;
  const auto unit = static_cast<XMLCh>(character);
  return first ? xc::XMLChar1_0::isFirstNameChar(unit) : xc::XMLChar1_0::isNameChar(unit);
}

} // namespace

bool qvDomIsName(std::string_view text) {
  if (text.empty())
    return false;
  for (bool first = true; !text.empty(); first = false)
    if (!isNameChar(qvDomTakeUtf8(text), first))
      return false;
  return true;
}

std::string qvDomRead(std::string_view text, QvDomDocument& document) {
  auto scan = qvDomScan(text);
  if (!scan.failure.empty())
    return std::move(scan.failure);
  try {
    auto failure = readWithKeptReader(text, scan, document);
    return failure.empty() ? qvDomFindZero(text, scan) : failure;
  } catch (const xc::OutOfMemoryException&) {
    throw std::bad_alloc();
  } catch (const xc::XMLException& error) {
    return located(1, 1, toUtf8(error.getMessage()));
  } catch (const xc::SAXException& error) {
    return located(1, 1, toUtf8(error.getMessage()));
  }
}
