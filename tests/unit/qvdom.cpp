// Documents as a tree: handles, building, files.
#include "qvxdom/qvdom.h"

#include "qvxbase/qvbfault.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace {

QvDom started(const char* rootName) {
  QvDom dom;
  EXPECT_TRUE(dom.startNewDocument(rootName));
  return dom;
}

QvDom loaded(const std::string& xml) {
  QvDom dom;
  EXPECT_TRUE(dom.loadXML(text(xml))) << dom.getErrorMessage();
  return dom;
}

std::string compact(const QvDom& dom) { return str(dom.createXML(false, dom.getRoot())); }

std::vector<std::string> childNames(const QvDomNode& node, bool withText) {
  std::vector<std::string> names;
  for (auto child = node.getFirstChild(withText); !child.null(); child = child.getNextSibling(withText))
    names.push_back(child.getName().isNull() ? "#" + str(child.getValue(false)) : str(child.getName()));
  return names;
}

TEST(QvDom, ADocumentThatWasNeverStartedHasNoRoot) {
  const QvDom dom;
  EXPECT_TRUE(dom.getRoot().null());
  EXPECT_TRUE(dom.getErrorMessage().isNull());
  EXPECT_TRUE(dom.createXML(true, dom.getRoot()).isNull());
}

TEST(QvDom, AStartedDocumentHasItsRootAndNothingElse) {
  const auto dom = started("morvaxeldocument");
  const auto root = dom.getRoot();
  EXPECT_FALSE(root.null());
  EXPECT_EQ(root.getName(), "morvaxeldocument");
  EXPECT_TRUE(root.getValue(true).isNull());
  EXPECT_TRUE(root.getFirstChild(true).null());
  EXPECT_TRUE(root.getNextSibling(true).null());
  EXPECT_EQ(root.getAttributeCount(), 0);
}

TEST(QvDom, StartingAgainReplacesTheDocument) {
  auto dom = started("a");
  dom.getRoot().addChild("b");
  ASSERT_TRUE(dom.startNewDocument("c"));
  EXPECT_EQ(compact(dom), "<c/>");
}

TEST(QvDom, ANameThatXmlDoesNotAllowStartsNoDocument) {
  for (const std::string name : {"", "1a", "a b", "-a", ".a", "a<", "a\"", "a=", "\xFF", "a\xC3",
                                 "a\xEF\xBF\xBE", "a\xC3\x97", "\xC2\xB7-"}) {
    auto dom = started("before");
    EXPECT_FALSE(dom.startNewDocument(text(name))) << name;
    EXPECT_TRUE(dom.getRoot().null()) << name;
    EXPECT_EQ(str(dom.getErrorMessage()), "\"" + name + "\" is not a name that XML allows");
  }
  QvDom dom;
  EXPECT_FALSE(dom.startNewDocument(QvbString()));
  EXPECT_FALSE(dom.startNewDocument(QvbString("a\0b", 3)));
}

TEST(QvDom, EveryNameThatStartsADocumentReadsBack) {
  for (const char* name : {"a", "_", ":", "a:b", "a-b.c_9", "A1", "\xC3\xA9t\xC3\xA9",
                           "\xE5\x90\x8D\xE5\x89\x8D", "a\xC2\xB7", "\xF0\x90\x80\x80z"}) {
    const auto dom = started(name);
    EXPECT_EQ(loaded(compact(dom)).getRoot().getName(), name);
  }
}

TEST(QvDom, AMissingNodeReadsAsNothingAndTakesNoChange) {
  QvDomNode node;
  EXPECT_TRUE(node.null());
  EXPECT_TRUE(node.getName().isNull());
  EXPECT_TRUE(node.getValue(false).isNull());
  EXPECT_TRUE(node.getValue(true).isNull());
  EXPECT_TRUE(node.getFirstChild(true).null());
  EXPECT_TRUE(node.getNextSibling(false).null());
  EXPECT_TRUE(node.getAttributeValue("a").isNull());
  EXPECT_EQ(node.getAttributeCount(), 0);
  EXPECT_FALSE(node.getAttributeNameValue(0, nullptr, nullptr));
  node.setValue("x");
  node.setAttributeValue("a", "b");
  EXPECT_TRUE(node.addChild("c").null());
  EXPECT_TRUE(node.null());
}

TEST(QvDom, ChildrenStandInTheOrderTheyWereAdded) {
  const auto dom = started("r");
  auto root = dom.getRoot();
  for (const char* name : {"a", "b", "a", "c"})
    EXPECT_EQ(root.addChild(name).getName(), name);
  EXPECT_EQ(childNames(root, false), (std::vector<std::string>{"a", "b", "a", "c"}));
}

TEST(QvDom, ANameThatXmlDoesNotAllowAddsNothing) {
  const auto dom = started("r");
  auto root = dom.getRoot();
  EXPECT_TRUE(root.addChild("a b").null());
  EXPECT_TRUE(root.addChild(QvbString()).null());
  root.setAttributeValue("1", "x");
  root.setAttributeValue("", "x");
  root.setAttributeValue("a=\"b\" c", "x");
  EXPECT_EQ(compact(dom), "<r/>");
}

TEST(QvDom, SiblingsAreWalkedWithOrWithoutText) {
  const auto dom = loaded("<r>one<a/>two<b/><c/>three</r>");
  EXPECT_EQ(childNames(dom.getRoot(), false), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(childNames(dom.getRoot(), true),
            (std::vector<std::string>{"#one", "a", "#two", "b", "c", "#three"}));
}

TEST(QvDom, TheValueIsTheElementsOwnTextOrThatOfAllBelow) {
  const auto root = loaded("<r>one<a>two<b>three</b></a>four</r>");
  EXPECT_EQ(root.getRoot().getValue(false), "onefour");
  EXPECT_EQ(root.getRoot().getValue(true), "onetwothreefour");
  const auto a = root.getRoot().getFirstChild(false);
  EXPECT_EQ(a.getValue(false), "two");
  EXPECT_EQ(a.getValue(true), "twothree");
  EXPECT_EQ(a.getFirstChild(false).getValue(true), "three");
}

TEST(QvDom, AnElementWithoutTextHasANullValue) {
  const auto dom = loaded("<r><a>x</a></r>");
  EXPECT_TRUE(dom.getRoot().getValue(false).isNull());
  EXPECT_EQ(dom.getRoot().getValue(true), "x");
  EXPECT_TRUE(loaded("<r></r>").getRoot().getValue(true).isNull());
}

TEST(QvDom, SettingTheValueLeavesOneTextAfterTheChildren) {
  const auto dom = loaded("<r>one<a>keep</a>two<b/></r>");
  auto root = dom.getRoot();
  root.setValue("three");
  EXPECT_EQ(compact(dom), "<r><a>keep</a><b/>three</r>");
  root.setValue("four");
  root.addChild("c");
  EXPECT_EQ(compact(dom), "<r><a>keep</a><b/>four<c/></r>");
  root.setValue("");
  EXPECT_EQ(compact(dom), "<r><a>keep</a><b/><c/></r>");
  root.setValue(QvbString());
  root.addChild("d");
  EXPECT_EQ(compact(dom), "<r><a>keep</a><b/><c/><d/></r>");
}

TEST(QvDom, RemovingTheOnlyTextLeavesAnEmptyElement) {
  const auto dom = loaded("<r>text</r>");
  auto root = dom.getRoot();
  root.setValue("");
  EXPECT_TRUE(root.getFirstChild(true).null());
  root.addChild("a");
  EXPECT_EQ(compact(dom), "<r><a/></r>");
}

TEST(QvDom, ARunOfTextCanBeReadAndNotChanged) {
  const auto dom = loaded("<r>one<a/></r>");
  auto run = dom.getRoot().getFirstChild(true);
  EXPECT_TRUE(run.getName().isNull());
  EXPECT_EQ(run.getValue(false), "one");
  EXPECT_EQ(run.getValue(true), "one");
  EXPECT_TRUE(run.getFirstChild(true).null());
  EXPECT_EQ(run.getAttributeCount(), 0);
  EXPECT_TRUE(run.getAttributeValue("a").isNull());
  run.setValue("two");
  run.setAttributeValue("a", "b");
  EXPECT_TRUE(run.addChild("c").null());
  EXPECT_EQ(compact(dom), "<r>one<a/></r>");
}

TEST(QvDom, AttributesKeepTheirOrderAndAreReplacedInPlace) {
  const auto dom = started("r");
  auto root = dom.getRoot();
  for (const char* name : {"z", "a", "m", "b", "y", "c"})
    root.setAttributeValue(name, name);
  root.setAttributeValue("a", "again");
  EXPECT_EQ(root.getAttributeCount(), 6);
  EXPECT_EQ(compact(dom), R"(<r z="z" a="again" m="m" b="b" y="y" c="c"/>)");
}

TEST(QvDom, AttributeNamesAreComparedExactly) {
  const auto dom = loaded(R"(<r Id="1" id="2"/>)");
  EXPECT_EQ(dom.getRoot().getAttributeValue("Id"), "1");
  EXPECT_EQ(dom.getRoot().getAttributeValue("id"), "2");
  EXPECT_TRUE(dom.getRoot().getAttributeValue("ID").isNull());
}

TEST(QvDom, AnEmptyAttributeIsNotAMissingOne) {
  const auto dom = loaded(R"(<r a=""/>)");
  EXPECT_FALSE(dom.getRoot().getAttributeValue("a").isNull());
  EXPECT_TRUE(dom.getRoot().getAttributeValue("a").isEmpty());
  EXPECT_TRUE(dom.getRoot().getAttributeValue("b").isNull());
  dom.getRoot().setAttributeValue("b", QvbString());
  EXPECT_EQ(compact(dom), R"(<r a="" b=""/>)");
}

TEST(QvDom, AttributesAreReadByTheirIndex) {
  const auto dom = loaded(R"(<r one="1" two="2"/>)");
  QvbString name;
  QvbString value;
  ASSERT_TRUE(dom.getRoot().getAttributeNameValue(1, &name, &value));
  EXPECT_EQ(name, "two");
  EXPECT_EQ(value, "2");
  EXPECT_TRUE(dom.getRoot().getAttributeNameValue(0, &name, nullptr));
  EXPECT_EQ(name, "one");
  EXPECT_EQ(value, "2");
  EXPECT_TRUE(dom.getRoot().getAttributeNameValue(0, nullptr, &value));
  EXPECT_EQ(value, "1");
  EXPECT_TRUE(dom.getRoot().getAttributeNameValue(0, nullptr, nullptr));
}

TEST(QvDom, ManyAttributesAreEachFoundAndReplacedInPlace) {
  constexpr int count = 50'000;
  const auto name = [](int i) { return text("a" + std::to_string(i)); };
  auto dom = started("r");
  auto root = dom.getRoot();
  for (int round = 0; round < 2; ++round)
    for (int i = 0; i < count; ++i)
      root.setAttributeValue(name(i), text(std::to_string(round * i)));
  ASSERT_EQ(root.getAttributeCount(), count);
  EXPECT_TRUE(root.getAttributeValue(name(count)).isNull());
  for (int i = 0; i < count; ++i) {
    QvbString found;
    ASSERT_TRUE(root.getAttributeNameValue(i, &found, nullptr));
    ASSERT_EQ(found, name(i));
    ASSERT_EQ(str(root.getAttributeValue(name(i))), std::to_string(i));
  }
}

TEST(QvDom, AttributesThatWereReadAreFoundHoweverManyTheyAre) {
  std::string xml = "<r";
  for (int i = 0; i < 40; ++i)
    xml += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
  auto dom = loaded("<d>" + xml + "/>" + xml + "/></d>");
  auto first = dom.getRoot().getFirstChild(false);
  auto second = first.getNextSibling(false);
  first.setAttributeValue("a20", "changed");
  first.setAttributeValue("more", "yes");
  EXPECT_EQ(first.getAttributeValue("a20"), "changed");
  EXPECT_EQ(first.getAttributeValue("more"), "yes");
  EXPECT_EQ(first.getAttributeCount(), 41);
  EXPECT_EQ(second.getAttributeValue("a20"), "20") << "each element has its own";
  EXPECT_TRUE(second.getAttributeValue("more").isNull());
}

TEST(QvDom, AnIndexOutOfRangeWritesNothing) {
  const auto dom = loaded(R"(<r one="1"/>)");
  QvbString name("before");
  QvbString value("before");
  for (const int index : {-1, 1, 2, 1 << 30}) {
    EXPECT_FALSE(dom.getRoot().getAttributeNameValue(index, &name, &value)) << index;
    EXPECT_EQ(name, "before");
    EXPECT_EQ(value, "before");
  }
}

TEST(QvDom, ValuesReadOutliveTheDocument) {
  QvbString name;
  QvbString value;
  {
    const auto dom = loaded(R"(<element attribute="value"/>)");
    name = dom.getRoot().getName();
    value = dom.getRoot().getAttributeValue("attribute");
  }
  EXPECT_EQ(name, "element");
  EXPECT_EQ(value, "value");
}

TEST(QvDom, AMovedDocumentKeepsItsNodes) {
  auto first = loaded("<r><a/></r>");
  const auto node = first.getRoot().getFirstChild(false);
  QvDom second(std::move(first));
  EXPECT_EQ(node.getName(), "a");
  QvDom third;
  third = std::move(second);
  EXPECT_EQ(compact(third), "<r><a/></r>");
}

TEST(QvDom, EmbeddedZeroBytesAreKeptInValues) {
  const auto dom = started("r");
  auto root = dom.getRoot();
  root.setAttributeValue("a", QvbString("x\0y", 3));
  EXPECT_EQ(root.getAttributeValue("a").length(), 3);
}

TEST(QvDom, AFileIsWrittenWithItsDeclarationAndReadsBack) {
  const TempDir dir;
  auto dom = started("r");
  dom.getRoot().addChild("a").setValue("x");
  ASSERT_TRUE(dom.createFile(text(dir / "laid out.xml"), true, dom.getRoot()));
  EXPECT_TRUE(dom.getErrorMessage().isNull());
  EXPECT_EQ(dir.read("laid out.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r>\n  <a>x</a>\n</r>\n");
  ASSERT_TRUE(dom.createFile(text(dir / "compact.xml"), false, dom.getRoot()));
  EXPECT_EQ(dir.read("compact.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r><a>x</a></r>");
  for (const char* name : {"laid out.xml", "compact.xml"}) {
    QvDom read;
    ASSERT_TRUE(read.loadFile(text(dir / name))) << read.getErrorMessage();
    EXPECT_EQ(compact(read), compact(dom));
  }
}

TEST(QvDom, AFileOfOneElementHoldsThatElement) {
  const TempDir dir;
  auto dom = loaded("<r><a><b/></a></r>");
  ASSERT_TRUE(dom.createFile(text(dir / "a.xml"), false, dom.getRoot().getFirstChild(false)));
  EXPECT_EQ(dir.read("a.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a><b/></a>");
}

TEST(QvDom, AFailedWriteLeavesTheOldFileAndNoOther) {
  const TempDir dir;
  const auto path = dir.write("kept.xml", "<old/>");
  auto dom = started("r");
  qvbSetFaultHook(
      [](QvbFaultPoint point, const char*) { return point == QvbFaultPoint::FileWrite ? ENOSPC : 0; });
  const bool written = dom.createFile(text(path), true, dom.getRoot());
  qvbSetFaultHook(nullptr);
  EXPECT_FALSE(written);
  EXPECT_EQ(str(dom.getErrorMessage()).rfind(path + ": ", 0), 0u) << dom.getErrorMessage();
  EXPECT_GT(dom.getErrorMessage().length(), static_cast<QvbString::Index>(path.size() + 2));
  EXPECT_EQ(dir.read("kept.xml"), "<old/>");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
  EXPECT_FALSE(dom.getRoot().null()) << "a failed write does not cost the document";
  ASSERT_TRUE(dom.createFile(text(path), true, dom.getRoot()));
  EXPECT_TRUE(dom.getErrorMessage().isNull());
}

TEST(QvDom, NothingIsWrittenForAMissingNodeOrARunOfText) {
  const TempDir dir;
  const auto path = dir / "never.xml";
  auto dom = loaded("<r>text</r>");
  for (const auto& node : {QvDomNode(), dom.getRoot().getFirstChild(true)}) {
    EXPECT_FALSE(dom.createFile(text(path), true, node));
    EXPECT_EQ(str(dom.getErrorMessage()), path + ": there is no element to write");
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST(QvDom, AFileThatCannotBeReadIsNamedWithTheReason) {
  const TempDir dir;
  const auto path = dir / "missing.xml";
  auto dom = started("before");
  EXPECT_FALSE(dom.loadFile(text(path)));
  EXPECT_TRUE(dom.getRoot().null());
  EXPECT_EQ(str(dom.getErrorMessage()).rfind(path + ": ", 0), 0u) << dom.getErrorMessage();
}

TEST(QvDom, AMalformedFileIsNamedWithThePlace) {
  const TempDir dir;
  const auto path = dir.write("bad.xml", "<r>\n  <a></b>\n</r>");
  QvDom dom;
  EXPECT_FALSE(dom.loadFile(text(path)));
  EXPECT_TRUE(dom.getRoot().null());
  EXPECT_EQ(str(dom.getErrorMessage()).rfind(path + ":2:", 0), 0u) << dom.getErrorMessage();
}

TEST(QvDom, ASuccessTakesTheLastMessageAway) {
  QvDom dom;
  EXPECT_FALSE(dom.loadXML("<"));
  EXPECT_FALSE(dom.getErrorMessage().isNull());
  EXPECT_TRUE(dom.loadXML("<r/>"));
  EXPECT_TRUE(dom.getErrorMessage().isNull());
  EXPECT_FALSE(dom.startNewDocument("<"));
  EXPECT_TRUE(dom.startNewDocument("r"));
  EXPECT_TRUE(dom.getErrorMessage().isNull());
}

TEST(QvDom, AFileOverTheSizeLimitIsRefused) {
  const TempDir dir;
  const auto path = dir.write("large.xml", "<r/>");
  std::filesystem::resize_file(path, (std::uintmax_t{512} << 20) + 1);
  QvDom dom;
  EXPECT_FALSE(dom.loadFile(text(path)));
  EXPECT_EQ(str(dom.getErrorMessage()), path + ": the document is over 512 MiB");
}

} // namespace
