// Text as documents: what is kept, what is refused and why, and the cost of large ones.
#include "qvxdom/qvdom.h"

#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <sys/mman.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace std::string_literals;

// A processing instruction after the root, which means nothing: a document with it is read by the parser, whereas plain
// ones are not.
const std::string forTheParser = "<?p:p?>";

std::string messageOf(const std::string& xml) {
  QvDom dom;
  EXPECT_FALSE(dom.loadXML(text(xml))) << xml;
  EXPECT_TRUE(dom.getRoot().null()) << xml;
  return str(dom.getErrorMessage());
}

QvDom loaded(const std::string& xml) {
  QvDom dom;
  EXPECT_TRUE(dom.loadXML(text(xml))) << dom.getErrorMessage();
  return dom;
}

std::string normalized(const std::string& xml) {
  const auto dom = loaded(xml);
  return str(dom.createXML(false, dom.getRoot()));
}

struct ReadCase {
  const char* xml;
  const char* kept;
};

TEST(QvDomReader, WhatIsKeptOfADocument) {
  const ReadCase cases[] = {
      {"<r/>", "<r/>"},
      {"<?xml version='1.0'?>\n<r/>\n<!-- after -->\n", "<r/>"},
      // White space is layout between elements, and text everywhere else.
      {"<r>\n  <a/>\n\t<b/>\r\n</r>", "<r><a/><b/></r>"},
      {"<r> \n </r>", "<r> \n </r>"},
      {"<r><a> </a></r>", "<r><a> </a></r>"},
      {"<r>one <a>x</a> <b/>\n</r>", "<r>one <a>x</a> <b/>\n</r>"},
      {"<r> <a/> <b/> two <c/> </r>", "<r> <a/> <b/> two <c/> </r>"},
      {"<r> <a/>  <b/>\t<c/>\n<d/>x</r>", "<r> <a/>  <b/>\t<c/>\n<d/>x</r>"},
      {"<r> <a> <b> <c/> </b> x </a> </r>", "<r><a> <b><c/></b> x </a></r>"},
      {"<r> <a> <b/> </a> x</r>", "<r> <a><b/></a> x</r>"},
      // One run of text, whatever it is made of.
      {"<r>a<!-- c -->b<?p i?>c<![CDATA[<d>&amp;]]>e&#102;&lt;</r>", "<r>abc&lt;d&gt;&amp;amp;ef&lt;</r>"},
      {"<r><![CDATA[]]></r>", "<r/>"},
      {"<r><!-- c --></r>", "<r/>"},
      {"<r> <!-- c --> </r>", "<r>  </r>"},
      // References and line ends.
      {"<r>&lt;&gt;&amp;&quot;&apos;&#65;&#x1F600;</r>", "<r>&lt;&gt;&amp;\"'A\xF0\x9F\x98\x80</r>"},
      {"<r>a\r\nb\rc\nd</r>", "<r>a\nb\nc\nd</r>"},
      {"<r>&#13;&#10;&#9;</r>", "<r>&#13;\n\t</r>"},
      {"<r a='x\ny\tz'/>", "<r a=\"x y z\"/>"},
      {"<r a='&#10;&#9;&#13;'/>", "<r a=\"&#10;&#9;&#13;\"/>"},
      {"<r a=\"'\" b='\"' c='>'/>", "<r a=\"'\" b=\"&quot;\" c=\">\"/>"},
      // Names are taken as they stand: prefixes mean nothing.
      {"<x:r xmlns:x='u' y:a='1' xml:lang='en'><y:b/></x:r>",
       "<x:r xmlns:x=\"u\" y:a=\"1\" xml:lang=\"en\"><y:b/></x:r>"},
      {"<\xC3\xA9l\xC3\xA9ment n\xC2\xB7m='v'/>", "<\xC3\xA9l\xC3\xA9ment n\xC2\xB7m=\"v\"/>"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(normalized(c.xml), c.kept);
    EXPECT_EQ(normalized(c.xml + forTheParser), c.kept);
  }
}

struct MalformedCase {
  std::string xml;
  const char* place;
};

TEST(QvDomReader, AMalformedTextIsRefusedWithItsPlace) {
  const MalformedCase cases[] = {
      {"", "1:1"},
      {" ", "1:2"},
      {"text", "1:1"},
      {"<", "1:2"},
      {"<r", "1:3"},
      {"<r>", "1:4"},
      {"<r></s>", "1:6"},
      {"<r>\n<a>\n</r>", "3:3"},
      {"<r/><r/>", "1:5"},
      {"<r/>text", "1:5"},
      {"<r a/>", "1:5"},
      {"<r a=b/>", "1:6"},
      {"<r a='1' a='2'/>", "1:12"},
      {"<r a='1'b='2'/>", "1:9"},
      {"<r a='<'/>", "1:8"},
      {"<r>&undefined;</r>", "1:15"},
      {"<r a='&undefined;'/>", "1:18"},
      {"<r>&amp</r>", "1:8"},
      {"<r>&#0;</r>", "1:8"},
      {"<r>&#x110000;</r>", "1:12"},
      {"<r>&#xFFFE;</r>", "1:12"},
      {"<r>a]]>b</r>", "1:8"},
      {"<r><!-- a -- b --></r>", "1:14"},
      {"<r><![CDATA[x</r>", "1:18"},
      {"<r>\x01</r>", "1:5"},
      {"<r>"s + '\0' + "</r>", "1:4"},
      {"<r/>"s + '\0', "1:5"},
      {"<r/>\n<!-- \xC3\xA9 -->"s + '\0' + "<r/>", "2:11"},
      {"<?xml version='1.0' encoding='ISO-8859-2'?><r/><!--\xE9-->"s + '\0' + "text", "1:56"},
      {"\xFE\xFF\0<\0r\0/\0>\0\0\0x"s, "1:5"},
      {"<1r/>", "1:2"},
      {"<r>\xEF\xBF\xBF</r>", "1:5"},
      {"<r a='\xEF\xBF\xBE'/>", "1:8"},
  };
  for (const auto& c : cases) {
    const auto message = messageOf(c.xml);
    EXPECT_EQ(message.substr(0, message.find(": ")), c.place) << c.xml << " -> " << message;
    EXPECT_GT(message.size(), std::string_view(c.place).size() + 2) << "there is a reason";
  }
}

TEST(QvDomReader, BytesThatAreNotUtf8AreRefusedWithTheirPlace) {
  const MalformedCase cases[] = {
      {"\xFF", "1:1"},
      {"<r>\n\n\xC3\x28</r>", "3:1"},
      {"<r>\xC3\xA9\x80</r>", "1:5"},
      {"<r>\xED\xA0\x80</r>", "1:4"},
      {"\xEF\xBB\xBF<r a='\xC0\x80'/>", "1:7"},
      {"<?xml version='1.0' encoding='utf8'?>\r\n<r>\xE2\x82</r>", "2:4"},
      {"<r>" + std::string(100'000, 'x') + "\xF4\x90\x80\x80</r>", "1:100004"},
      {"<r/>\xF2!", "1:5"},
      {"<r/>\xFE\xFF<a>", "1:5"},
      {"<r></r>\n\xE2\x82", "2:1"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(messageOf(c.xml), c.place + ": the text is not UTF-8"s) << c.xml;
}

std::string nested(std::size_t depth) {
  std::string xml;
  for (std::size_t i = 0; i < depth; ++i)
    xml += "<e>";
  for (std::size_t i = 0; i < depth; ++i)
    xml += "</e>";
  return xml;
}

TEST(QvDomReader, ElementsNestAsDeepAsTheLimit) {
  EXPECT_TRUE(QvDom().loadXML(text(nested(1000))));
  EXPECT_TRUE(QvDom().loadXML(text(nested(1000) + forTheParser)));
  EXPECT_EQ(messageOf(nested(1001)), "1:3004: elements are nested deeper than 1000 levels");
  EXPECT_EQ(messageOf("\n" + nested(1'000'000)), "2:3004: elements are nested deeper than 1000 levels");
  EXPECT_TRUE(QvDom().loadXML(text(nested(1000) + forTheParser))) << "the reader goes on after a refusal";
}

TEST(QvDomReader, ATextOverTheSizeLimitIsRefused) {
  constexpr std::size_t size = (std::size_t{512} << 20) + 1;
  void* zeros = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  QvDom dom;
  EXPECT_FALSE(dom.loadXML(QvbString(static_cast<const char*>(zeros), size)));
  munmap(zeros, size);
  EXPECT_EQ(dom.getErrorMessage(), "1:1: the document is over 512 MiB");
}

TEST(QvDomReader, AMillionSiblingsAreReadAndWalked) {
  constexpr int count = 1'000'000;
  std::string xml = "<r>";
  for (int i = 0; i < count; ++i)
    xml += "<a/>";
  const auto dom = loaded(xml + "</r>");
  int walked = 0;
  for (auto node = dom.getRoot().getFirstChild(true); !node.null(); node = node.getNextSibling(true))
    ++walked;
  EXPECT_EQ(walked, count);
}

TEST(QvDomReader, AMillionRunsOfTextAreReadAndJoined) {
  std::string xml = "<r>";
  for (int i = 0; i < 1'000'000; ++i)
    xml += "x<a/>";
  const auto dom = loaded(xml + "</r>");
  EXPECT_EQ(dom.getRoot().getValue(false).length(), 1'000'000);
}

TEST(QvDomReader, ManyDistinctNamesAreReadBack) {
  std::string xml = "<r>";
  for (int i = 0; i < 50'000; ++i)
    xml += "<e" + std::to_string(i) + " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"/>";
  xml += "</r>";
  EXPECT_EQ(normalized(xml), xml);
}

TEST(QvDomReader, CharactersAcrossTheParsersBuffersStayWhole) {
  std::string characters;
  while (characters.size() < 5'000'000)
    characters += "\xF0\x9F\x98\x80";
  for (std::size_t shift = 0; shift < 2; ++shift) {
    const auto value = std::string(shift, 'x').append(characters);
    const auto dom = loaded(
        std::string("<r a='").append(value).append("'>").append(value).append("</r>").append(forTheParser));
    EXPECT_TRUE(dom.getRoot().getValue(false).view() == value) << shift;
    EXPECT_TRUE(dom.getRoot().getAttributeValue("a").view() == value) << shift;
  }
}

TEST(QvDomReader, AReaderGoesOnAfterEveryFailure) {
  for (int round = 0; round < 3; ++round) {
    messageOf("<r a='\xC3'/>");
    messageOf("<r><a>");
    messageOf("<?xml version='1.0' encoding='ISO-8859-99'?><r/>");
    EXPECT_EQ(normalized("<r a='1'>x</r>" + forTheParser), "<r a=\"1\">x</r>");
  }
}

TEST(QvDomReader, AReaderIsRenewedWithoutNotice) {
  for (int i = 0; i < 10'100; ++i)
    ASSERT_TRUE(QvDom().loadXML(text("<r/>" + forTheParser))) << i;
  const auto large = text("<r>" + std::string(3'000'000, 'x') + "</r>" + forTheParser);
  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(QvDom().loadXML(large)) << i;
}

TEST(QvDomReader, ThreadsReadAtTheSameTime) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(8);
  for (std::size_t i = 0; i < results.size(); ++i)
    threads.emplace_back([&result = results[i], i] {
      for (int round = 0; round < 200; ++round)
        result = normalized("<r n='" + std::to_string(i) + "'><a>x</a></r>" + forTheParser);
    });
  for (auto& thread : threads)
    thread.join();
  for (std::size_t i = 0; i < results.size(); ++i)
    EXPECT_EQ(results[i], "<r n=\"" + std::to_string(i) + "\"><a>x</a></r>");
}

// Reads a document when it ends.
struct LateReader {
  ~LateReader() {
    if (result)
      *result = normalized("<r><a>x</a></r><?p:p?>");
  }
  std::string* result = nullptr;
};
thread_local LateReader lateReader;

TEST(QvDomReader, AThreadReadsToItsVeryEnd) {
  std::string late;
  std::thread([&] {
    lateReader.result = &late; // made before the thread's first document, it ends after the thread's reader
    loaded("<r/>" + forTheParser);
  }).join();
  EXPECT_EQ(late, "<r><a>x</a></r>");
}

struct ReaderAtExit {
  ~ReaderAtExit() {
    QvDom dom;
    const bool read = dom.loadXML("<r/><?p:p?>") && !dom.loadXML("<r>") && dom.loadXML("<r/><?p:p?>");
    std::_Exit(read ? 3 : 4);
  }
};

TEST(QvDomReaderDeathTest, StaticDestructorsRead) {
  const auto end = [] {
    static const ReaderAtExit atExit;
    loaded("<r/>" + forTheParser);
    std::exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(3), "");
}

TEST(QvDomReader, NoBytesBreakTheReader) {
  EXPECT_TRUE(rc::check("markup in any order", [] {
    const auto pieces = *rc::gen::container<std::vector<std::string>>(rc::gen::oneOf(
        rc::gen::element<std::string>("<r>", "</r>", "<r/>", "<a b='c'>", "</a>", "<!--", "-->", "<![CDATA[",
                                      "]]>", "<?p", "?>", "&lt;", "&#10;", "&x;", "<!DOCTYPE r", "[", "]",
                                      "'", "\"", " ", "\xFF\xFE", "<?xml version='1.0'?>"),
        rc::gen::arbitrary<std::string>()));
    std::string xml;
    for (const auto& piece : pieces)
      xml += piece;
    QvDom dom;
    return dom.loadXML(text(xml)) == dom.getErrorMessage().isNull() &&
           dom.getRoot().null() == !dom.getErrorMessage().isNull();
  }));
}

} // namespace
