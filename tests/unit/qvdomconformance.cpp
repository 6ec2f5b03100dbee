// The documents of the W3C XML conformance test suite that hold no document type declaration.
#include "qvxdom/qvdom.h"

#include "support/textio.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::filesystem::path folder = std::filesystem::path(QV_TEST_DATA) / "xml-conformance";

struct Case {
  std::string verdict;
  std::string document;
};

std::vector<Case> cases() {
  std::ifstream table(folder / "cases.tsv");
  std::vector<Case> result;
  for (Case c; table >> c.verdict >> c.document;)
    result.push_back(c);
  return result;
}

std::string contentOf(const std::string& document) {
  std::ifstream file(folder / "documents" / document, std::ios::binary);
  EXPECT_TRUE(file) << document;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

TEST(QvDomConformance, EveryDocumentGetsTheVerdictOfTheSuite) {
  std::size_t accepted = 0;
  std::size_t refused = 0;
  for (const auto& c : cases()) {
    const auto content = contentOf(c.document);
    QvDom dom;
    const bool isRead = dom.loadXML(text(content));
    EXPECT_EQ(isRead ? "accepted" : "refused", c.verdict) << c.document << ": " << dom.getErrorMessage();
    EXPECT_EQ(dom.getErrorMessage().isNull(), isRead) << c.document;
    ++(isRead ? accepted : refused);
  }
  EXPECT_EQ(accepted, 60u);
  EXPECT_EQ(refused, 229u);
}

TEST(QvDomConformance, EveryAcceptedDocumentReadsBackAsItWasWritten) {
  for (const auto& c : cases()) {
    if (c.verdict != "accepted")
      continue;
    QvDom dom;
    ASSERT_TRUE(dom.loadXML(text(contentOf(c.document)))) << c.document << dom.getErrorMessage();
    const auto written = dom.createXML(false, dom.getRoot());
    for (const bool layout : {false, true}) {
      QvDom again;
      ASSERT_TRUE(again.loadXML(dom.createXML(layout, dom.getRoot())))
          << c.document << again.getErrorMessage();
      EXPECT_EQ(again.createXML(false, again.getRoot()), written) << c.document;
    }
  }
}

} // namespace
