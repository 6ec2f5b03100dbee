// What is refused before a document is parsed, and in which encodings documents are read.
#include "qvxdom/qvdom.h"

#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <cstring>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

const std::string noDoctype = "a document type declaration is not allowed";

std::string messageOf(const std::string& xml) {
  QvDom dom;
  EXPECT_FALSE(dom.loadXML(text(xml))) << xml;
  EXPECT_TRUE(dom.getRoot().null());
  return str(dom.getErrorMessage());
}

std::string valueOf(const std::string& xml) {
  QvDom dom;
  EXPECT_TRUE(dom.loadXML(text(xml))) << dom.getErrorMessage();
  return str(dom.getRoot().getValue(true));
}

enum class Order { Big, Little };

// ASCII text in code units of 2 or 4 bytes.
std::string widened(std::string_view ascii, std::size_t width, Order order) {
  std::string wide;
  for (const char c : ascii) {
    std::string unit(width, '\0');
    (order == Order::Big ? unit.back() : unit.front()) = c;
    wide += unit;
  }
  return wide;
}

struct DoctypeCase {
  const char* xml;
  const char* place;
};

TEST(QvDomScan, AZeroBehindTheRootElementIsRefusedInEveryEncoding) {
  const std::string xml = "<r/>\n "s + '\0' + "<a";
  const std::string refused = "2:2: a zero byte is no character of XML";
  EXPECT_EQ(messageOf(xml), refused);
  EXPECT_EQ(messageOf("<r/>"s + '\0'), "1:5: a zero byte is no character of XML");
  EXPECT_EQ(messageOf("\xEF\xBB\xBF" + xml), refused);
  EXPECT_EQ(messageOf("<?xml version='1.0' encoding='ISO-8859-1'?><r>\xE9</r>"s + '\0'),
            "1:52: a zero byte is no character of XML");
  EXPECT_EQ(messageOf("\xFF\xFE" + widened(xml, 2, Order::Little)), refused);
  EXPECT_EQ(messageOf("\0\0\xFE\xFF"s + widened(xml, 4, Order::Big)), refused);
}

TEST(QvDomScan, EveryFormOfDocumentTypeIsRefusedWhereItStands) {
  const DoctypeCase cases[] = {
      {"<!DOCTYPE r><r/>", "1:1"},
      {"<!DOCTYPE r SYSTEM 'r.dtd'><r/>", "1:1"},
      {"<!DOCTYPE r PUBLIC '-//x' 'http://127.0.0.1:9/r.dtd'><r/>", "1:1"},
      {"<!DOCTYPE r [<!ENTITY e 'text'>]><r>&e;</r>", "1:1"},
      {"<!DOCTYPE r [<!ENTITY e ']>'>]><r/>", "1:1"},
      {"<?xml version=\"1.0\"?><!DOCTYPE r><r/>", "1:22"},
      {"<?xml version='1.0'?>\n  <!DOCTYPE r><r/>", "2:3"},
      {"<?xml version='1.0'?>\r\n\r\n<!DOCTYPE r><r/>", "3:1"},
      {"<?xml version='1.0'?>\r\r<!DOCTYPE r><r/>", "3:1"},
      {" \t<!DOCTYPE r><r/>", "1:3"},
      {"<!-- c --><!DOCTYPE r><r/>", "1:11"},
      {"<!-- \xE2\x82\xAC --><!DOCTYPE r><r/>", "1:11"},
      {"<!-- > -- ><!DOCTYPE r> --><!DOCTYPE r><r/>", "1:28"},
      {"<?p <!-- ?><!DOCTYPE r><?p --> ?><r/>", "1:12"},
      {"<?p x?>\n<!-- c -->\n<!DOCTYPE r><r/>", "3:1"},
      {"\xEF\xBB\xBF<!DOCTYPE r><r/>", "1:1"},
      {"<!DOCTYPE", "1:1"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(messageOf(c.xml), c.place + (": " + noDoctype)) << c.xml;
}

TEST(QvDomScan, ADocumentTypeElsewhereIsMalformed) {
  for (const char* xml : {"<r/><!DOCTYPE r>", "<r><!DOCTYPE r></r>", "x<!DOCTYPE r><r/>",
                          "<!-- <!DOCTYPE r><r/>", "<! DOCTYPE r><r/>", "<!doctype r><r/>"})
    EXPECT_NE(messageOf(xml), "") << xml;
}

TEST(QvDomScan, WhatOnlyLooksLikeADocumentTypeIsRead) {
  EXPECT_EQ(valueOf("<!-- <!DOCTYPE r> --><r>x</r>"), "x");
  EXPECT_EQ(valueOf("<?p <!DOCTYPE r>?><r>x</r>"), "x");
  EXPECT_EQ(valueOf("<r><![CDATA[<!DOCTYPE r>]]></r>"), "<!DOCTYPE r>");
}

TEST(QvDomScan, ADocumentTypeIsFoundInEveryWidth) {
  const std::string xml = "<?xml version='1.0'?>\n<!-- c --><!DOCTYPE r [<!ENTITY e 'x'>]><r>&e;</r>";
  const std::string expected = "2:11: " + noDoctype;
  for (const auto order : {Order::Big, Order::Little}) {
    EXPECT_EQ(messageOf((order == Order::Big ? "\xFE\xFF"s : "\xFF\xFE"s) + widened(xml, 2, order)),
              expected);
    EXPECT_EQ(messageOf(widened(xml, 2, order)), expected);
    EXPECT_EQ(messageOf((order == Order::Big ? "\0\0\xFE\xFF"s : "\xFF\xFE\0\0"s) + widened(xml, 4, order)),
              expected);
    EXPECT_EQ(messageOf(widened(xml, 4, order)), expected);
  }
}

TEST(QvDomScan, WhatIsLeftOpenIsRefusedInEveryWidth) {
  for (const std::string xml : {"<r/><!-- <!DOCTYPE r>", "<r/><?p <!DOCTYPE r>", "<?xml version='1.0'"}) {
    const std::string expected = messageOf(xml);
    EXPECT_FALSE(expected.empty() || expected.ends_with(noDoctype)) << expected;
    for (const auto order : {Order::Big, Order::Little})
      EXPECT_EQ(messageOf((order == Order::Big ? "\xFE\xFF"s : "\xFF\xFE"s) + widened(xml, 2, order)),
                expected);
  }
}

TEST(QvDomScan, DocumentsInEveryWidthAreRead) {
  const std::string xml = "<?xml version='1.0'?><!-- c --><r>x</r>";
  for (const auto order : {Order::Big, Order::Little}) {
    EXPECT_EQ(valueOf((order == Order::Big ? "\xFE\xFF"s : "\xFF\xFE"s) + widened(xml, 2, order)), "x");
    EXPECT_EQ(valueOf(widened(xml, 2, order)), "x");
    EXPECT_EQ(valueOf((order == Order::Big ? "\0\0\xFE\xFF"s : "\xFF\xFE\0\0"s) + widened(xml, 4, order)),
              "x");
    EXPECT_EQ(valueOf(widened(xml, 4, order)), "x");
  }
}

TEST(QvDomScan, TextIsUtf8WhateverTheDocumentsEncoding) {
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='UTF-8'?><r>\xC3\xA9</r>"), "\xC3\xA9");
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='utf-8' standalone='yes'?><r>\xC3\xA9</r>"), "\xC3\xA9");
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='ISO-8859-1'?><r>\xE9</r>"), "\xC3\xA9");
  EXPECT_EQ(valueOf("<?xml version=\"1.0\"\n encoding = \"iso-8859-15\" ?><r>\xA4</r>"), "\xE2\x82\xAC");
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='windows-1252'?><r>\x80</r>"), "\xE2\x82\xAC");
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='US-ASCII'?><r>x</r>"), "x");
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='EUC-JP'?><r>\xA4\xA2</r>"), "\xE3\x81\x82");
  EXPECT_EQ(valueOf("<?xml version='1.0' encoding='GB2312'?><r>\xB0\xA1</r>"), "\xE5\x95\x8A");
  EXPECT_EQ(valueOf("\xFF\xFE<\0r\0>\0=\xD8\0\xDE<\0/\0r\0>\0"s), "\xF0\x9F\x98\x80");
  EXPECT_EQ(valueOf("\xFE\xFF\0<\0r\0>\x20\xAC\0<\0/\0r\0>"s), "\xE2\x82\xAC");
}

// A document in each form that its first bytes tell, with an encoding declared.
std::string declaring(const std::string& encoding, const std::string& mark, std::size_t width, Order order) {
  return mark + widened("<?xml version='1.0' encoding='" + encoding + "'?><r>x</r>", width, order);
}

TEST(QvDomScan, ADeclaredEncodingAgreesWithTheFirstBytes) {
  for (const char* name : {"UTF-8", "utf-8", "UTF8"})
    EXPECT_EQ(valueOf(declaring(name, "\xEF\xBB\xBF", 1, Order::Big)), "x") << name;
  for (const auto order : {Order::Big, Order::Little}) {
    const std::string end = order == Order::Big ? "BE" : "LE";
    const auto mark2 = order == Order::Big ? "\xFE\xFF"s : "\xFF\xFE"s;
    const auto mark4 = order == Order::Big ? "\0\0\xFE\xFF"s : "\xFF\xFE\0\0"s;
    for (const auto& name : {"UTF-16"s, "utf-16"s, "UTF-16" + end, "ISO-10646-UCS-2"s, "ucs-2"s})
      for (const auto& mark : {mark2, ""s})
        EXPECT_EQ(valueOf(declaring(name, mark, 2, order)), "x") << name;
    for (const auto& name : {"UTF-32"s, "UTF-32" + end, "ISO-10646-UCS-4"s, "UCS-4" + end})
      for (const auto& mark : {mark4, ""s})
        EXPECT_EQ(valueOf(declaring(name, mark, 4, order)), "x") << name;
  }
}

TEST(QvDomScan, ADeclaredEncodingThatContradictsTheFirstBytesIsRefused) {
  struct Contradiction {
    const char* name;
    std::string mark;
    std::size_t width;
    const char* form;
  };
  const Contradiction cases[] = {
      {"UTF-8LE", "\xEF\xBB\xBF", 1, "UTF-8"},
      {"ISO-8859-1", "\xEF\xBB\xBF", 1, "UTF-8"},
      {"UTF-16", "\xEF\xBB\xBF", 1, "UTF-8"},
      {"utf-8", "\xFE\xFF", 2, "UTF-16BE"},
      {"UTF-8", "", 2, "UTF-16BE"},
      {"UTF-16LE", "\xFE\xFF", 2, "UTF-16BE"},
      {"UTF-32", "\xFE\xFF", 2, "UTF-16BE"},
      {"UTF-16", "\0\0\xFE\xFF"s, 4, "UCS-4BE"},
      {"ASCII", "", 4, "UCS-4BE"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(messageOf(declaring(c.name, c.mark, c.width, Order::Big)),
              "1:1: the encoding \""s + c.name + "\" is not that of the first bytes, " + c.form);
}

TEST(QvDomScan, AVersionIsAOneAndDigits) {
  EXPECT_EQ(valueOf("<?xml version='1.0'?><r>x</r>"), "x");
  for (const char* version :
       {"1.0?", "1.0^", "1.0 ", " 1.0", "1.", "1", "10", "2.0", "1.0.1", "1.x", "", "1.0?>", "1.0<?p?>"})
    EXPECT_EQ(messageOf("<?xml version='"s + version + "'?><r/>"),
              "1:1: \""s + version + "\" is not a version of XML");
  EXPECT_EQ(messageOf("<?xml version='1.1'?><r/>"), "1:1: XML version 1.1 is not supported");
}

TEST(QvDomScan, ALaterVersionIsReadAsThisOne) { EXPECT_EQ(valueOf("<?xml version='1.2'?><r>x</r>"), "x"); }

TEST(QvDomScan, AnEncodingThatCouldHideMarkupIsRefused) {
  for (const char* name : {"UTF-7", "ISO-2022-JP", "HZ-GB-2312", "SCSU", "BOCU-1", "IBM037", "ibm-1047",
                           "UTF-16", "UTF-32", "unheard-of", "IMAP-mailbox-name"})
    EXPECT_EQ(messageOf("<?xml version='1.0' encoding='"s + name + "'?>+ADwAIQ-DOCTYPE r+AD4-<r/>"),
              "1:1: the encoding \""s + name + "\" is not supported");
}

// What ends a section in bytes alone need not end it in characters.
TEST(QvDomScan, AnEncodingWhoseCharactersHoldBytesOfMarkupIsRefused) {
  for (const char* name : {"Shift_JIS", "shift_jis", "GBK", "GB18030", "Big5", "Windows-31J", "CP936"})
    EXPECT_EQ(messageOf("<?xml version='1.0' encoding='"s + name + "'?><r><![CDATA[\x83]]></r>]]></r>"),
              "1:1: the encoding \""s + name + "\" is not supported");
}

TEST(QvDomScan, AnEncodingThatIsAdmittedAndUnknownIsRefusedByTheParser) {
  EXPECT_EQ(messageOf("<?xml version='1.0' encoding='ISO-8859-99'?><r/>").rfind("1:1: ", 0), 0u);
}

TEST(QvDomScan, ADeclarationHidesNothingFromTheScan) {
  for (const char* xml : {"<?xml version='1.0' standalone=' encoding=\"UTF-8\"' encoding='UTF-7'?><r/>",
                          "<?xml encoding='UTF-7' version='1.0'?><r/>", "<?xml version='1.0' encoding='UTF-8",
                          "<?xml version='1.0' encoding='UTF-8' encoding='UTF-7'?><r/>", "<?xml?><r/>",
                          " <?xml version='1.0'?><r/>", "<?xml version='2.0'?><r/>"})
    EXPECT_NE(messageOf(xml), "") << xml;
}

TEST(QvDomScan, Xml11IsRefused) {
  EXPECT_EQ(messageOf("<?xml version=\"1.1\"?><r>&#1;</r>"), "1:1: XML version 1.1 is not supported");
}

std::string attributes(int count) {
  std::string all;
  for (int i = 0; i < count; ++i)
    all += " a" + std::to_string(i) + "='>'";
  return all;
}

TEST(QvDomScan, WhatIsEmptyOrNoXmlIsCalledThat) {
  for (const char* empty : {"", "\xEF\xBB\xBF"})
    EXPECT_EQ(messageOf(empty), "1:1: the document is empty");
  EXPECT_EQ(messageOf(" \r\n\t"), "2:2: the document is empty") << "the place is its end";
  EXPECT_EQ(messageOf(" \r"), "2:1: the document is empty");
  for (const auto order : {Order::Big, Order::Little})
    EXPECT_EQ(messageOf((order == Order::Big ? "\xFE\xFF"s : "\xFF\xFE"s) + widened(" \r\n\t", 2, order)),
              "2:2: the document is empty");
  EXPECT_EQ(messageOf("\xFF\xFE\r\n"), "1:1: invalid document structure")
      << "one character, which is no white space";
  EXPECT_EQ(messageOf("hello"), "1:1: this is no XML, which begins with \"<\"");
  EXPECT_EQ(messageOf("\n {\"a\": 1}"), "2:2: this is no XML, which begins with \"<\"");
}

TEST(QvDomScan, AnElementHasAsManyAttributesAsTheLimit) {
  QvDom dom;
  ASSERT_TRUE(dom.loadXML(text("<r><e" + attributes(10'000) + "/></r>"))) << dom.getErrorMessage();
  EXPECT_EQ(dom.getRoot().getFirstChild(false).getAttributeCount(), 10'000);
  const std::string refused = "an element has more than 10000 attributes";
  EXPECT_EQ(messageOf("<r>\n<e" + attributes(10'001) + "/></r>"), "2:1: " + refused);
  EXPECT_EQ(messageOf("<r" + attributes(1'000'000)), "1:1: " + refused);
  EXPECT_EQ(messageOf("<!-- c --><r><![CDATA[x]]><e" + attributes(10'001) + "/></r>"), "1:27: " + refused);
  EXPECT_EQ(messageOf("\xFE\xFF" + widened("<r>\n <e" + attributes(10'001) + "/></r>", 2, Order::Big)),
            "2:2: " + refused);
}

TEST(QvDomScan, TextThatLooksLikeManyAttributesIsRead) {
  const auto many = attributes(20'000);
  const auto expected = "<e" + many;
  EXPECT_EQ(valueOf("<r>" + many + "</r>"), many);
  EXPECT_EQ(valueOf("<r><![CDATA[" + expected + "]]></r>"), expected);
  EXPECT_EQ(valueOf("<r><!-- " + expected + " --><?p " + expected + "?>x</r>"), "x");
  EXPECT_EQ(valueOf("\xFF\xFE" + widened("<r><![CDATA[" + expected + "]]></r>", 2, Order::Little)), expected);
}

// Whatever opens, reads or lists in a folder while this lives is noticed.
class Watch {
public:
  explicit Watch(const std::string& folder) : m_queue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    EXPECT_GE(inotify_add_watch(m_queue, folder.c_str(), IN_OPEN | IN_ACCESS), 0);
  }
  ~Watch() { close(m_queue); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  // Whether a file in the folder was. Other processes may look at the folder itself, as at all temporary ones.
  bool noticed() const {
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(m_queue, events, sizeof events);
    for (ssize_t at = 0; at < size;) {
      inotify_event event{};
      std::memcpy(&event, events + at, sizeof event);
      if ((event.mask & IN_ISDIR) == 0)
        return true;
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
    return false;
  }

private:
  int m_queue;
};

TEST(QvDomScan, TheWatchOfTheseTestsNoticesAReader) {
  const TempDir dir;
  dir.write("secret", "x");
  const Watch watch(dir.path().string());
  dir.read("secret");
  EXPECT_TRUE(watch.noticed());
}

TEST(QvDomScan, NothingADocumentNamesIsEverOpened) {
  const TempDir dir;
  const auto file = dir.write("secret", "TOPSECRET");
  const auto fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const auto main = dir / "main.xml";
  for (const auto& target : {file, "file://" + file, "secret"s, fifo, "file://" + fifo}) {
    const std::string documents[] = {
        "<!DOCTYPE r [<!ENTITY e SYSTEM '" + target + "'>]><r>&e;</r>",
        "<!DOCTYPE r SYSTEM '" + target + "'><r/>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM '" + target + "'> %p;]><r/>",
        "<r xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" + target + "' parse='text'/></r>",
        "<r xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='" + target +
            "'/>",
        "<?xml-stylesheet href='" + target + "'?><r/>",
    };
    for (const auto& xml : documents) {
      dir.write("main.xml", xml);
      const Watch watch(dir.path().string());
      QvDom dom;
      dom.loadXML(text(xml));
      EXPECT_FALSE(watch.noticed()) << xml;
      dom.loadFile(text(main));
      EXPECT_EQ(str(dom.createXML(false, dom.getRoot())).find("TOPSECRET"), std::string::npos);
      EXPECT_EQ(str(dom.getErrorMessage()).find("TOPSECRET"), std::string::npos);
    }
  }
}

TEST(QvDomScan, AnEntityBombIsRefusedBeforeItGrows) {
  std::string bomb = "<!DOCTYPE r [<!ENTITY e0 'lol'>";
  for (int i = 1; i < 30; ++i) {
    bomb += "<!ENTITY e" + std::to_string(i) + " '";
    for (int copy = 0; copy < 10; ++copy)
      bomb += "&e" + std::to_string(i - 1) + ";";
    bomb += "'>";
  }
  EXPECT_EQ(messageOf(bomb + "]><r>&e29;</r>"), "1:1: " + noDoctype);
}

} // namespace
