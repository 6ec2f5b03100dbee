// Documents as text: layout, escapes, and that every value reads back.
#include "qvxdom/qvdom.h"

#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

QvDom loaded(const std::string& xml) {
  QvDom dom;
  EXPECT_TRUE(dom.loadXML(text(xml))) << dom.getErrorMessage();
  return dom;
}

std::string written(const QvDom& dom, bool layout) { return str(dom.createXML(layout, dom.getRoot())); }

struct WriteCase {
  const char* read;
  const char* compact;
  const char* laidOut;
};

TEST(QvDomWriter, LayoutFollowsTheTree) {
  const WriteCase cases[] = {
      {"<r/>", "<r/>", "<r/>\n"},
      {"<r></r>", "<r/>", "<r/>\n"},
      {"<r>x</r>", "<r>x</r>", "<r>x</r>\n"},
      {"<r> </r>", "<r> </r>", "<r> </r>\n"},
      {"<r a='1' b=\"2\"/>", "<r a=\"1\" b=\"2\"/>", "<r a=\"1\" b=\"2\"/>\n"},
      {"<r><a/><b>x</b></r>", "<r><a/><b>x</b></r>", "<r>\n  <a/>\n  <b>x</b>\n</r>\n"},
      {"<r><a><b><c/></b></a><d/></r>", "<r><a><b><c/></b></a><d/></r>",
       "<r>\n  <a>\n    <b>\n      <c/>\n    </b>\n  </a>\n  <d/>\n</r>\n"},
      {"<r><p>one <b><i/>two</b> three</p><q/></r>", "<r><p>one <b><i/>two</b> three</p><q/></r>",
       "<r>\n  <p>one <b><i/>two</b> three</p>\n  <q/>\n</r>\n"},
      {"<r><p>one<b><i><u/></i></b></p><q><s/></q></r>", "<r><p>one<b><i><u/></i></b></p><q><s/></q></r>",
       "<r>\n  <p>one<b><i><u/></i></b></p>\n  <q>\n    <s/>\n  </q>\n</r>\n"},
  };
  for (const auto& c : cases) {
    const auto dom = loaded(c.read);
    EXPECT_EQ(written(dom, false), c.compact);
    EXPECT_EQ(written(dom, true), c.laidOut);
    EXPECT_EQ(written(loaded(c.laidOut), false), c.compact);
  }
}

TEST(QvDomWriter, ANodeIsWrittenWithWhatIsBelowItAlone) {
  const auto dom = loaded("<r><a><b/></a>text &amp; more<c/></r>");
  const auto a = dom.getRoot().getFirstChild(false);
  EXPECT_EQ(dom.createXML(true, a), "<a>\n  <b/>\n</a>\n");
  EXPECT_EQ(dom.createXML(false, a.getFirstChild(false)), "<b/>");
  EXPECT_EQ(dom.createXML(true, a.getNextSibling(true)), "text &amp; more");
}

TEST(QvDomWriter, APrologStandsBeforeTheTextAsItIs) {
  const auto dom = loaded("<r><a/></r>");
  EXPECT_EQ(dom.createXML(true, dom.getRoot(), "<?xml version=\"1.0\"?>\n"),
            "<?xml version=\"1.0\"?>\n<r>\n  <a/>\n</r>\n");
  EXPECT_EQ(dom.createXML(false, dom.getRoot(), "& "), "& <r><a/></r>");
  EXPECT_TRUE(dom.createXML(false, QvDomNode(), "prolog").isNull());
}

struct EscapeCase {
  std::string value;
  std::string asText;
  std::string asAttribute;
};

TEST(QvDomWriter, CharactersWithAMeaningAreEscaped) {
  const std::string fffd = "\xEF\xBF\xBD";
  const EscapeCase cases[] = {
      {"a&b", "a&amp;b", "a&amp;b"},
      {"a<b", "a&lt;b", "a&lt;b"},
      {"a>b", "a&gt;b", "a>b"},
      {"]]>", "]]&gt;", "]]>"},
      {"'", "'", "'"},
      {"\"", "\"", "&quot;"},
      {"\t", "\t", "&#9;"},
      {"\n", "\n", "&#10;"},
      {"\r", "&#13;", "&#13;"},
      {"\r\n", "&#13;\n", "&#13;&#10;"},
      {"&amp;", "&amp;amp;", "&amp;amp;"},
      {"\x01"
       "x\x1F",
       fffd + "x" + fffd, fffd + "x" + fffd},
      {std::string("a\0b", 3), "a" + fffd + "b", "a" + fffd + "b"},
      {"\x7F", "\x7F", "\x7F"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
       "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"\xEF\xBF\xBE\xEF\xBF\xBF", fffd + fffd, fffd + fffd}, // U+FFFE, U+FFFF
      {"\xEF\xBF\xBD", fffd, fffd},
      {"\xC3", fffd, fffd},
      {"\xC3(", fffd + "(", fffd + "("},
      {"\x80\xBF", fffd + fffd, fffd + fffd},
      {"\xC0\x80", fffd + fffd, fffd + fffd},                                     // overlong
      {"\xE0\x80\x80", fffd + fffd + fffd, fffd + fffd + fffd},                   // overlong
      {"\xED\xA0\x80", fffd + fffd + fffd, fffd + fffd + fffd},                   // a surrogate
      {"\xF4\x90\x80\x80", fffd + fffd + fffd + fffd, fffd + fffd + fffd + fffd}, // over U+10FFFF
      {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
      {"\xE2\x82", fffd + fffd, fffd + fffd},
      {"\xFF\xFE", fffd + fffd, fffd + fffd},
  };
  for (const auto& c : cases) {
    QvDom dom;
    ASSERT_TRUE(dom.startNewDocument("r"));
    auto root = dom.getRoot();
    root.setValue(text(c.value));
    EXPECT_EQ(written(dom, false), "<r>" + c.asText + "</r>");
    root.setValue("");
    root.setAttributeValue("a", text(c.value));
    EXPECT_EQ(written(dom, false), "<r a=\"" + c.asAttribute + "\"/>");
  }
}

TEST(QvDomWriter, AdjoiningTextsMakeNoSectionEnd) {
  const auto dom = loaded("<r>a]<b/></r>");
  dom.getRoot().getFirstChild(false).setValue("]]");
  EXPECT_EQ(written(loaded(written(dom, false)), false), "<r>a]<b>]]</b></r>");
}

// The length of the well-formed UTF-8 sequence at the front, 0 when there is none: the table of the Unicode
// standard, row by row.
std::size_t sequenceLength(std::string_view bytes) {
  struct Row {
    int lead, leadEnd, second, secondEnd;
    std::size_t length;
  };
  static constexpr Row rows[] = {
      {0x00, 0x7F, 0, 0, 1},       {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
      {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
      {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
  const auto byte = [&](std::size_t i) { return static_cast<int>(static_cast<unsigned char>(bytes[i])); };
  for (const auto& row : rows) {
    if (byte(0) < row.lead || byte(0) > row.leadEnd)
      continue;
    bool sound = bytes.size() >= row.length;
    for (std::size_t i = 1; sound && i < row.length; ++i)
      sound = i == 1 ? byte(i) >= row.second && byte(i) <= row.secondEnd : byte(i) >= 0x80 && byte(i) <= 0xBF;
    return sound ? row.length : 0;
  }
  return 0;
}

// What is left of a value that went through XML.
std::string carried(std::string_view bytes) {
  std::string result;
  while (!bytes.empty()) {
    const auto length = sequenceLength(bytes);
    const auto character = bytes.substr(0, length);
    const bool control = length == 1 && static_cast<unsigned char>(bytes[0]) < 0x20 && bytes[0] != '\t' &&
                         bytes[0] != '\n' && bytes[0] != '\r';
    const bool forbidden =
        length == 0 || control || character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF";
    result += forbidden ? "\xEF\xBF\xBD" : character;
    bytes.remove_prefix(length == 0 ? 1 : length);
  }
  return result;
}

rc::Gen<std::string> anyValue() {
  const auto piece = rc::gen::oneOf(
      rc::gen::element<std::string>("&", "<", ">", "]]>", "\"", "'", "\r", "\n", "\t", "\r\n", " ", "  ",
                                    "&#10;", "&amp;", "<!--", "<![CDATA[", "?>", "\xC2\x85", "\xE2\x80\xA8",
                                    "\xEF\xBB\xBF", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xEF\xBF\xBE",
                                    "\xEF\xBF\xBF", "\xED\xA0\x80", "\xC3", "\xE2\x82", "\x7F", "plain text"),
      rc::gen::arbitrary<std::string>());
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(piece),
                      [](const std::vector<std::string>& all) {
                        std::string joined;
                        for (const auto& one : all)
                          joined += one;
                        return joined;
                      });
}

bool readsBack(const std::string& attribute, const std::string& value, bool layout) {
  QvDom dom;
  dom.startNewDocument("r");
  auto child = dom.getRoot().addChild("child");
  child.setAttributeValue("a", text(attribute));
  child.setValue(text(value));
  dom.getRoot().addChild("next");
  QvDom read;
  if (!read.loadXML(dom.createXML(layout, dom.getRoot())))
    return false;
  const auto node = read.getRoot().getFirstChild(true);
  return str(node.getAttributeValue("a")) == carried(attribute) &&
         str(node.getValue(false)) == carried(value) && node.getNextSibling(true).getName() == "next" &&
         node.getNextSibling(true).getNextSibling(true).null();
}

TEST(QvDomWriter, EveryValueReadsBackAsFarAsXmlCarriesIt) {
  EXPECT_TRUE(rc::check("in both layouts", [] {
    const auto attribute = *anyValue();
    const auto value = *anyValue();
    return readsBack(attribute, value, false) && readsBack(attribute, value, true);
  }));
}

TEST(QvDomWriter, LongValuesReadBackWhateverTheirAlignment) {
  std::string characters;
  while (characters.size() < 100'000)
    characters += "\xF0\x9F\x98\x80\r\n\t &<>]]>\"'\xC3\xA9";
  for (std::size_t shift = 0; shift < 4; ++shift)
    for (const bool layout : {false, true})
      EXPECT_TRUE(
          readsBack(std::string(shift, 'x') + characters, std::string(shift, 'y') + characters, layout))
          << shift << layout;
}

// A tree with mixed content, as every shape of it has to survive both layouts.
void grow(QvDomNode node, int depth) {
  const auto children = *rc::gen::inRange(0, depth > 0 ? 4 : 1);
  for (int i = 0; i < children; ++i)
    grow(node.addChild(*rc::gen::element("a", "b", "c")), depth - 1);
  if (*rc::gen::arbitrary<bool>())
    node.setAttributeValue("n", *rc::gen::element("", "1", "x y"));
  if (*rc::gen::arbitrary<bool>())
    node.setValue(*rc::gen::element("t", " u ", "\n"));
}

TEST(QvDomWriter, EveryTreeThatWasReadReadsBackFromBothLayouts) {
  EXPECT_TRUE(rc::check("built, read, written, read", [] {
    QvDom built;
    built.startNewDocument("r");
    grow(built.getRoot(), 4);
    const auto read = loaded(written(built, false));
    return written(loaded(written(read, false)), false) == written(read, false) &&
           written(loaded(written(read, true)), false) == written(read, false);
  }));
}

// A chain of elements, the innermost of which holds a text.
QvDom nested(std::size_t depth) {
  QvDom dom;
  EXPECT_TRUE(dom.startNewDocument("e"));
  auto node = dom.getRoot();
  for (std::size_t i = 1; i < depth; ++i)
    node = node.addChild("e");
  node.setValue("x");
  return dom;
}

QvDom withAttributes(std::size_t count) {
  QvDom dom;
  EXPECT_TRUE(dom.startNewDocument("r"));
  auto node = dom.getRoot().addChild("e");
  for (std::size_t i = 0; i < count; ++i)
    node.setAttributeValue(text("a" + std::to_string(i)), "v");
  return dom;
}

// The text that stands in the document so many times.
QvDom withTexts(std::size_t count, const QvbString& value) {
  QvDom dom;
  EXPECT_TRUE(dom.startNewDocument("r"));
  for (std::size_t i = 0; i < count; ++i)
    dom.getRoot().addChild("e").setValue(value);
  return dom;
}

TEST(QvDomWriter, WhatItsReaderTakesIsWritten) {
  for (const auto& dom : {nested(QvDom::MaxDepth), withAttributes(QvDom::MaxAttributes)}) {
    QvDom again;
    EXPECT_TRUE(again.loadXML(dom.createXML(true, dom.getRoot()))) << again.getErrorMessage();
  }
}

TEST(QvDomWriter, WhatItsReaderWouldRefuseIsNotWritten) {
  const TempDir folder;
  struct Excess {
    QvDom dom;
    const char* reason;
  };
  const QvbString megabyte(text(std::string(std::size_t{1} << 20, 'x')));
  Excess cases[] = {
      {nested(QvDom::MaxDepth + 1), "elements are nested deeper than 1000 levels"},
      {withAttributes(QvDom::MaxAttributes + 1), "an element has more than 10000 attributes"},
      {withTexts(512, megabyte), "the document is over 512 MiB"},
  };
  const auto path = text(folder.write("old.xml", "<old/>"));
  for (auto& [dom, reason] : cases) {
    for (const bool layout : {false, true})
      EXPECT_TRUE(dom.createXML(layout, dom.getRoot()).isNull()) << reason;
    EXPECT_FALSE(dom.createFile(path, true, dom.getRoot()));
    EXPECT_EQ(str(dom.getErrorMessage()), str(path) + ": " + reason);
    EXPECT_EQ(folder.read("old.xml"), "<old/>");
  }
}

TEST(QvDomWriter, ThePrologCountsForTheSize) {
  const auto dom = nested(1);
  const QvbString prolog(text(std::string(QvDom::MaxSize, ' ')));
  EXPECT_TRUE(dom.createXML(false, dom.getRoot(), prolog).isNull());
}

TEST(QvDomWriter, ATreeOfAnyDepthIsReadThrough) { EXPECT_EQ(nested(200'000).getRoot().getValue(true), "x"); }

} // namespace
