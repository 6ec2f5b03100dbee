// Documents in the plain form mean what the parser takes them for.
#include "qvxdom/qvdom.h"
#include "qvxdom/qvdomelements.h"

#include "support/faults.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>
#include <vector>

namespace {

// An instruction after the root means nothing, and one of such a name leaves the document to the parser.
const std::string forTheParser = "<?p:p?>";

// What a text is read as, every run of text told apart; its failure where it is none.
std::string readingOf(const std::string& xml) {
  QvDom dom;
  if (!dom.loadXML(text(xml)))
    return "refused: " + str(dom.getErrorMessage());
  std::string told;
  std::vector<QvDomNode> pending{dom.getRoot()};
  while (!pending.empty()) {
    const QvDomNode node = pending.back();
    pending.pop_back();
    if (node.null()) {
      told += ')';
      continue;
    }
    if (node.getName().isNull())
      told += "[" + str(node.getValue(false)) + "]";
    else
      told += "(" + str(node.getName());
    QvbString name, value;
    for (int i = 0; node.getAttributeNameValue(i, &name, &value); ++i)
      told += " " + str(name) + "={" + str(value) + "}";
    std::vector<QvDomNode> children;
    for (auto child = node.getFirstChild(true); !child.null(); child = child.getNextSibling(true))
      children.push_back(child);
    if (!node.getName().isNull())
      pending.emplace_back();
    pending.insert(pending.end(), children.rbegin(), children.rend());
  }
  return told;
}

// What the reader makes of a text is what the parser makes of it; only what the parser takes is compared, because a text
// that the reader leaves is the parser's anyway, and the instruction would end in the middle of what is malformed. A
// character that is broken off by the end of the text the parser does not see; the instruction would end it.
bool meansTheSame(const std::string& xml) {
  if (!xml.empty() && static_cast<unsigned char>(xml.back()) >= 0x80)
    return true;
  const auto reading = readingOf(xml);
  return reading.starts_with("refused: ") || reading == readingOf(xml + forTheParser);
}

class NotingVisitor final : public QvDomElementVisitor {
public:
  bool visitElement(const QvDomElement& element) override {
    told += std::to_string(element.depth) + " " + std::string(element.name);
    for (const auto& attribute : element.attributes)
      told.append(" ").append(attribute.name).append("={").append(attribute.value).append("}");
    told += '\n';
    return --wanted != 0;
  }

  std::string told;
  int wanted = -1;
};

std::string elementsOf(const std::string& xml) {
  NotingVisitor visitor;
  QvbString error;
  return qvDomVisitElements(text(xml), visitor, &error) ? visitor.told : "refused: " + str(error);
}

std::string elementsOfTree(const std::string& xml) {
  NotingVisitor visitor;
  QvDom dom;
  if (!dom.loadXML(text(xml)))
    return "refused: " + str(dom.getErrorMessage());
  qvDomVisitElements(dom.getRoot(), visitor);
  return visitor.told;
}

rc::Gen<std::string> pieces() {
  return rc::gen::map(
      rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
          "<r>", "</r>", "<r/>", "<a b='c'>", "<a b=\"c\" d='e'/>", "<a b='c' b='c'/>", "</a>", "</a >",
          "<x:a", " x:b=\"'\"", " y='\"'", ">", "/>", "<!--", "-->", "-", "<![CDATA[", "]]>", "]", "&lt;",
          "&amp;", "&#10;", "&#x41;", "&#xD;", "&#228;", "&#x1F600;", "&#xD800;", "&#0;", "&#xFFFE;",
          "&#00000065;", "&x;", "&", ";", "'", "\"", " ", "\n", "\r\n", "\r", "\t", "text", "\xC3\xA9",
          "\xEF\xBF\xBE", "\xF0\x9F\x98\x80", "\xED\xA0\x80", "\xC3", "\x7F", "\x01", "<?xml version='1.0'?>",
          "=", "<", "</", "<?", "?>", "?", "<?p?>", "<?xml", "<?a ", "<?\xC3\xA9", "\xC2\xB7", "<\xC3\xA9>",
          "</\xC3\xA9>", "<\xF0\x90\x80\x80/>", "\xC3\xA9='\xC3\xA9'", "standalone='no'")),
      [](const std::vector<std::string>& all) {
        std::string xml;
        for (const auto& piece : all)
          xml += piece;
        return xml;
      });
}

// A sound document, of what the pieces above are made of.
std::string soundElement(int depth) {
  const auto content = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, depth > 0 ? 14 : 12));
  const std::string texts[] = {
      " ",       "\n  ", "text",     "&lt;",  "&#13;",           "\r\n",
      "<!---->", "a]]b", "\xC3\xA9", "<?p?>", "<![CDATA[<&]]]>", "<?pq ]]><&?\xC3\xA9\r?>"};
  const std::string attributes[] = {"",
                                    " a=''",
                                    " a='1' b=\"2\"",
                                    " a = 'x\ty'",
                                    " q='\"&#9;'",
                                    "\n c='&amp;\r\n>'",
                                    " \xC3\xA9='1'",
                                    " x:y='\xC3\xA9'"};
  const std::string name =
      *rc::gen::element<std::string>("r", "a", "b-1", "_x.y", "p:q", "\xC3\xA9", "a\xC2\xB7");
  std::string xml = "<" + name + attributes[*rc::gen::inRange(0, 8)];
  if (content.empty() && *rc::gen::arbitrary<bool>())
    return xml + "/>";
  xml += ">";
  for (const int piece : content)
    xml += piece < 12 ? texts[piece] : soundElement(depth - 1);
  return xml + "</" + name + *rc::gen::element<std::string>("", " ", "\n") + ">";
}

} // namespace

TEST(QvDomPlain, MeansWhatTheParserTakesItFor) {
  const std::string documents[] = {
      "<r/>",
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- a -->\r\n<r>\r\n <a/>\r\n</r>\r\n<!-- "
      "b -->",
      "<?xml version='1.0' encoding='utf-8' ?><r a = '1' \n b=\"2\"\t>x</r >",
      "<r> <a> </a> <b>x</b> </r>",
      "<r> one <a/> <b/> </r>",
      "<r> <a/> <b/> two <c/> </r>",
      "<r>a<!-- c -->b<![CDATA[<d>&amp;]]>e&#102;&lt;</r>",
      "<r> <!-- c --> </r>",
      "<r><![CDATA[]]></r>",
      "<r><![CDATA[ ]]><a/></r>",
      "<r>a\rb\r\nc\nd</r>",
      "<r a='a\rb\r\nc\nd\te&#10;&#13;&#9;'/>",
      "<r a=\"'\" b='\"' c='>]]>'/>",
      "<r>&quot;&apos;&gt;&#xe9;&#233;&#x10FFFF;\xC3\xA9\xEF\xBF\xBD\x7F]</r>",
      "<x:r xmlns:x='u' xml:lang='en'><x:b/></x:r>",
      "<:a/>",
      "<?xml version=\"1.0\" standalone='yes'?><?a?><?b c?><r>x<?d e\r\n ? ?"
      "?>y<?f?></r><?g <&]]>--\xC3\xA9 "
      "?>",
      "<?xml-model a='b'?><r/>",
      "<r>a]]b]] ></r>",
      "<\xC3\xA9 \xE4\xB8\xAD\xC2\xB7='1'><a\xF0\x90\x80\x80/></\xC3\xA9 >",
      "<r a='1' b='2' c='3' d='4' e='5' f='6' g='7' h='8' i='9' j='10' k='11' l='12' m='13' n='14' o='15' "
      "p='16' "
      "q='17' r='18'/>",
  };
  for (const auto& xml : documents) {
    EXPECT_FALSE(readingOf(xml).starts_with("refused")) << xml << readingOf(xml);
    EXPECT_EQ(readingOf(xml), readingOf(xml + forTheParser)) << xml;
  }
}

TEST(QvDomPlain, AnyPiecesOfMarkupMeanTheSameToTheParser) {
  EXPECT_TRUE(rc::check("in any order", [] { return meansTheSame(*pieces()); }));
  EXPECT_TRUE(rc::check("within an element", [] { return meansTheSame("<r>" + *pieces() + "</r>"); }));
  EXPECT_TRUE(rc::check("within a tag", [] { return meansTheSame("<r " + *pieces() + "/>"); }));
  EXPECT_TRUE(rc::check("within a value", [] { return meansTheSame("<r a='" + *pieces() + "'/>"); }));
}

TEST(QvDomPlain, SoundDocumentsMeanTheSameToTheParser) {
  EXPECT_TRUE(rc::check("sound documents", [] {
    const std::string xml = soundElement(3);
    RC_ASSERT(!readingOf(xml).starts_with("refused"));
    return readingOf(xml) == readingOf(xml + forTheParser);
  }));
}

TEST(QvDomPlain, Latin1MeansTheSameToTheParser) {
  const std::string start = "<?xml version='1.0' encoding='ISO-8859-1'?>";
  EXPECT_EQ(readingOf(start + "<r a='Verk\xE4ufe'>\xA0</r>"), "(r a={Verk\xC3\xA4ufe}[\xC2\xA0])");
  EXPECT_TRUE(rc::check([&] {
    const auto bytes = [] {
      return *rc::gen::container<std::string>(rc::gen::map(rc::gen::inRange(0x20, 0x100), [](int code) {
        const char byte = static_cast<char>(code);
        return byte == '<' || byte == '&' || byte == '\'' ? 'x' : byte;
      }));
    };
    const std::string name =
        *rc::gen::elementOf(std::vector<std::string>{"r", "r\xE9", "\xC9r", "r\xB7", "r\xD7"});
    RC_ASSERT(meansTheSame(start + "<!--" + bytes() + "--><" + name + " a='" + bytes() + "'>" + bytes() +
                           "</" + name + ">"));
  }));
}

TEST(QvDomPlain, Latin1IsTheOnlyEncodingThatItsDeclarationNames) {
  for (const std::string second : {" encoding=\"UTF-8\"", " encoding='utf-8' standalone='yes'"})
    EXPECT_EQ(readingOf("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"" + second + "?><r/>"),
              "refused: 1:51: encoding declaration already seen");
}

TEST(QvDomPlain, ChangedIdentitiesMeanTheSameToTheParser) {
  const std::string identity =
      R"(<morvaxeldocument class="tableresource" version="1"><resource>)"
      R"(<tabledatasource dsn="Sales" dsntype="ODBC" catalog="a&amp;b" schema="d &quot;b&quot;" table="T&#10;"/>)"
      R"(</resource></morvaxeldocument>)";
  EXPECT_EQ(readingOf(identity), readingOf(identity + forTheParser));
  EXPECT_TRUE(rc::check("bytes put in, taken out and changed", [&] {
    std::string xml = identity;
    for (int change = *rc::gen::inRange(1, 4); change > 0; --change) {
      const auto place = *rc::gen::inRange<std::size_t>(0, xml.size());
      switch (*rc::gen::inRange(0, 4)) {
      case 0:
        xml.erase(place, *rc::gen::inRange<std::size_t>(1, 8));
        break;
      case 1:
        xml.insert(place,
                   *rc::gen::element<std::string>("<", ">", "/", "&", ";", "\"", "'", " ", "=", "]]>", "é"));
        break;
      case 2:
        xml[place] = *rc::gen::arbitrary<char>();
        break;
      default:
        xml.insert(place, xml.substr(*rc::gen::inRange<std::size_t>(0, xml.size()), 12));
      }
    }
    return meansTheSame(xml);
  }));
}

TEST(QvDomPlain, ElementsAreToldAsTheTreeHasThem) {
  EXPECT_EQ(elementsOf("<r a='1'>x<b c='&lt;' d='&amp;&#10;'/><e><f/></e></r>"),
            "0 r a={1}\n1 b c={<} d={&\n}\n1 e\n2 f\n");
  EXPECT_TRUE(rc::check("sound documents", [] {
    const std::string xml = soundElement(3);
    return elementsOf(xml) == elementsOfTree(xml) && elementsOf(xml + forTheParser) == elementsOfTree(xml);
  }));
  EXPECT_TRUE(rc::check("any markup", [] {
    const std::string xml = *pieces();
    return elementsOf(xml) == elementsOfTree(xml);
  }));
}

TEST(QvDomPlain, NothingIsToldOfADocumentThatIsRefused) {
  NotingVisitor visitor;
  QvbString error;
  EXPECT_FALSE(qvDomVisitElements("<r><a/>\n<b></r>", visitor, &error));
  EXPECT_EQ(visitor.told, "");
  EXPECT_TRUE(str(error).starts_with("2:")) << error;
  EXPECT_FALSE(qvDomVisitElementsOfFile("/no/such/file", visitor, &error));
  EXPECT_EQ(error, "/no/such/file: not found");
  EXPECT_FALSE(qvDomVisitElements("", visitor, nullptr));
}

TEST(QvDomPlain, AFileIsReadOnceInWhateverFormItIs) {
  const TempDir dir;
  for (const std::string& xml : {std::string("<r/>"), "<r/>" + forTheParser, std::string("<r>")}) {
    dir.write("step.xml", xml);
    int opened = 0;
    const Faults counting([&](QvbFaultPoint point, const std::string&) {
      opened += point == QvbFaultPoint::FileOpen;
      return 0;
    });
    NotingVisitor visitor;
    QvbString error;
    qvDomVisitElementsOfFile(text(dir / "step.xml"), visitor, &error);
    EXPECT_EQ(opened, 1) << xml;
  }
}

TEST(QvDomPlain, TheVisitorEndsTheTelling) {
  for (const std::string& rest : {std::string(), forTheParser}) {
    NotingVisitor visitor;
    visitor.wanted = 2;
    EXPECT_TRUE(qvDomVisitElements(text("<r><a/><b/></r>" + rest), visitor, nullptr));
    EXPECT_EQ(visitor.told, "0 r\n1 a\n");
  }
}

TEST(QvDomPlain, ANodeIsToldWithItsSiblingsAndWhatIsBelow) {
  QvDom dom;
  ASSERT_TRUE(dom.loadXML("<r><a/>x<b><c/></b><d/></r>"));
  NotingVisitor visitor;
  qvDomVisitElements(dom.getRoot().getFirstChild(false).getNextSibling(true), visitor);
  EXPECT_EQ(visitor.told, "0 b\n1 c\n0 d\n");
  qvDomVisitElements(QvDomNode(), visitor);
  EXPECT_EQ(visitor.told, "0 b\n1 c\n0 d\n");
}
